#include <cerrno>

#include "commands.h"
#include "error_record.h"
#include "log.h"
#include "path_para.h"
#include "prepare_dir.h"
#include "record_format.h"
#include "request_text.h"

namespace TAVO::FileMigrateOrvane {

std::int32_t ProcessPrepareDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    if (LacksOwnerOrMode(msg)) {
        LogFailure({RecordTypeName("PARA_EMPTY"), EINVAL, msg->src}, "dir %{public}s owner or dac para not provided",
                   msg->src);
        info.errCode = EINVAL;
        RecordEmptyErr(RecordTypeName("PARA_EMPTY"), msg, EINVAL, RECORD_KIND_AB);
        return -1;
    }
    const Owner owner = DecodeOwner(msg, info);
    const std::uint32_t mode = ModeOf(msg);
    if (!owner.IsWhole()) {
        LogFailure({"DECODE_OWNER", info.errCode, msg->src},
                   "decode uid gid for %{public}s failed: %{public}s %{public}s", msg->src, msg->user, msg->group);
        return -1;
    }
    if (mode == 0) {
        info.errCode = errno;
        RecordModErr(RecordTypeName("TRANSFORM_MODE"), msg->perm, info.errCode, RECORD_KIND_AB);
        LogFailure({RecordTypeName("TRANSFORM_MODE"), info.errCode, msg->src},
                   "transform mode failed: %{public}s %{public}s, errno=%{public}d", msg->src, msg->perm, info.errCode);
        return -1;
    }
    const PathPara para{msg->src, owner.uid, owner.gid, mode, msg->recurseOpt};
    return PrepareDir(para, info.errCode, RECORD_KIND_AB) == 0 ? 0 : -1;
}

std::int32_t ProcessMkDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    return MkDir(msg->src, msg->recurseOpt, info.errCode, RECORD_KIND_AB);
}

}  // namespace TAVO::FileMigrateOrvane
