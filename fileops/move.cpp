#include "move.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "copy.h"
#include "error_record.h"
#include "log.h"
#include "owner_mode.h"
#include "remove.h"

namespace TAVO::FileMigrateOrvane {
namespace {

int GetUidGid(const std::string& path, uid_t& uid, gid_t& gid, int& err, int recordKind) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) {
        err = errno;
        RecordErrForPath("GETUIDGID", path, err, recordKind);
        LogError("lstat %{public}s failed, errno=%{public}d", path, err);
        return -1;
    }
    uid = st.st_uid;
    gid = st.st_gid;
    return 0;
}

int MoveByCopy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    uid_t uid = 0;
    gid_t gid = 0;
    if (Copy(src, dst, err, recordKind) != 0 || GetUidGid(src, uid, gid, err, recordKind) != 0 ||
        DoChOwnRecurse(dst, uid, gid, err, recordKind) != 0 || Remove(src, err, recordKind) != 0) {
        return -1;
    }
    LogInfo("MoveByCopy %{public}s to %{public}s suc", src, dst);
    return 0;
}

}  // namespace

int DoMove(const std::string& src, const std::string& dst, int& err, int recordKind) {
    if (rename(src.c_str(), dst.c_str()) == 0) {
        LogInfo("MoveByRename %{public}s to %{public}s suc", src, dst);
        return 0;
    }
    err = errno;
    LogError("MoveByRename %{public}s to %{public}s failed, errno=%{public}d", src, dst, err);
    if (err != EXDEV) {
        RecordMoveErr(src, dst, err, recordKind);
    }
    return -1;
}

int Move(const std::string& src, const std::string& dst, int& err, int recordKind) {
    if (DoMove(src, dst, err, recordKind) == 0) {
        return 0;
    }
    if (err != EXDEV) {
        return -1;
    }
    LogError("rename %{public}s to %{public}s failed EXDEV, use copy", src, dst);
    return MoveByCopy(src, dst, err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
