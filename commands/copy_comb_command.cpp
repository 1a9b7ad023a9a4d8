#include <cerrno>

#include "commands.h"
#include "copy_comb.h"
#include "error_record.h"
#include "log.h"
#include "path_helpers.h"
#include "path_para.h"
#include "record_format.h"
#include "request_text.h"

namespace TAVO::FileMigrateOrvane {

std::int32_t ProcessCopyCombCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    if (IsPathExist(msg->src, info.errCode, RECORD_KIND_AB) == 0) {
        LogFailure({"SOURCE_ABSENT", ENOENT, msg->src, msg->dst}, "src %{public}s not exist", msg->src);
        return SOURCE_ABSENT;
    }
    if (LacksOwnerOrMode(msg)) {
        LogFailure({RecordTypeName("PARA_EMPTY"), EINVAL, msg->src, msg->dst}, "owner or dac para not provided");
        info.errCode = EINVAL;
        RecordEmptyErr(RecordTypeName("PARA_EMPTY"), msg, EINVAL, RECORD_KIND_AB);
        return -1;
    }
    const Owner owner = DecodeOwner(msg, info);
    const std::uint32_t mode = ModeOf(msg);
    if (!owner.IsWhole()) {
        LogFailure({"DECODE_OWNER", info.errCode, msg->src, msg->dst}, "decode uid gid failed: %{public}s %{public}s",
                   msg->user, msg->group);
        return -1;
    }
    if (mode == 0) {
        info.errCode = errno;
        RecordModErr(RecordTypeName("TRANSFORM_MODE"), msg->perm, info.errCode, RECORD_KIND_AB);
        LogFailure({RecordTypeName("TRANSFORM_MODE"), info.errCode, msg->src, msg->dst},
                   "transform mode %{public}s failed, errno=%{public}d", msg->perm, info.errCode);
        return -1;
    }
    const PermPara perm{owner.uid, owner.gid, mode};
    return CopyCombRecurse(msg->src, msg->dst, perm, info.errCode, RECORD_KIND_AB) == 0 ? 0 : -1;
}

}  // namespace TAVO::FileMigrateOrvane
