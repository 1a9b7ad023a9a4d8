#include <cerrno>

#include "commands.h"
#include "error_record.h"
#include "log.h"
#include "owner_mode.h"
#include "path_para.h"
#include "record_format.h"
#include "request_text.h"
#include "restorecon.h"

namespace TAVO::FileMigrateOrvane {

std::int32_t ProcessRestoreconCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    if (IsCommand(msg, Command::Restorecon)) {
        return RestoreCon(msg->src, msg->recurseOpt, info.errCode, RECORD_KIND_AB);
    }
    return RestoreConFromParent(msg->src, info.errCode, RECORD_KIND_AB);
}

std::int32_t ProcessChOwnCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    const Owner owner = DecodeOwner(msg, info);
    if (!owner.IsWhole()) {
        LogFailure({"DECODE_OWNER", info.errCode, msg->src}, "transform uid gid %{public}s %{public}s failed",
                   msg->user, msg->group);
        return -1;
    }
    const PathPara para{msg->src, owner.uid, owner.gid, NOT_GIVEN, msg->recurseOpt};
    return ChOwn(para, info.errCode, RECORD_KIND_AB);
}

std::int32_t ProcessChModCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    const std::uint32_t mode = ModeOf(msg);
    if (mode == 0) {
        info.errCode = errno;
        LogFailure({RecordTypeName("TRANSFORM_MODE"), info.errCode, msg->src},
                   "transform mode %{public}s failed, errno=%{public}d", msg->perm, info.errCode);
        RecordModErr(RecordTypeName("TRANSFORM_MODE"), msg->perm, info.errCode, RECORD_KIND_AB);
        return -1;
    }
    return ChMod({msg->src, NOT_GIVEN, NOT_GIVEN, mode, msg->recurseOpt}, info.errCode, RECORD_KIND_AB);
}

}  // namespace TAVO::FileMigrateOrvane
