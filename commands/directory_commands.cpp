#include <cerrno>
#include <string>

#include "commands.h"
#include "error_record.h"
#include "identity.h"
#include "log.h"
#include "path_para.h"
#include "prepare_dir.h"
#include "record_file.h"
#include "request_text.h"

namespace TAVO::FileMigrateOrvane {

std::int32_t ProcessPrepareDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    if (LacksOwnerOrMode(msg)) {
        LogError("dir %{public}s owner or dac para not provided", msg->src);
        info.errCode = EINVAL;
        RecordEmptyErr("PARA_EMPTY", msg, EINVAL, RECORD_KIND_AB);
        return -1;
    }
    const int uid = DecodeUid(msg->user, info.errCode, RECORD_KIND_AB);
    const int gid = DecodeGid(msg->group, info.errCode, RECORD_KIND_AB);
    const std::uint32_t mode = ModeOf(msg->perm);
    if (uid == -1 || gid == -1) {
        LogError("decode uid gid for %{public}s failed: %{public}s %{public}s", msg->src, msg->user, msg->group);
        return -1;
    }
    if (mode == 0) {
        info.errCode = errno;  // as the last failing call left it: a mode that reads as 0 is no error to strtoul
        RecordModErr("TRANSFORM_MODE", msg->perm, info.errCode, RECORD_KIND_AB);
        LogError("transform mode failed: %{public}s %{public}s, errno=%{public}d", msg->src, msg->perm, info.errCode);
        return -1;
    }
    const PathPara para{msg->src, static_cast<std::uint32_t>(uid), static_cast<std::uint32_t>(gid), mode,
                        msg->recurseOpt};
    return PrepareDir(para, info.errCode, RECORD_KIND_AB) == 0 ? 0 : -1;
}

std::int32_t ProcessMkDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    return MkDir(msg->src, msg->recurseOpt, info.errCode, RECORD_KIND_AB);
}

}  // namespace TAVO::FileMigrateOrvane
