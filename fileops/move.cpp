#include "move.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "copy.h"
#include "error_record.h"
#include "log.h"
#include "owner_mode.h"
#include "remove.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// @param copied  what was copied; another object that bears its name by now is not to be removed for it, nor does its
///                owner get the copy
int GetUidGid(const std::string& path, const struct stat& copied, uid_t& uid, gid_t& gid, int& err, int recordKind) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) {
        err = errno;
        RecordErrForPath("GETUIDGID", path, err, recordKind);
        LogError("lstat %{public}s failed, errno=%{public}d", path, err);
        return -1;
    }
    if (copied.st_ino != 0 && !IsSame(st, copied)) {
        err = ESTALE;
        RecordErrForPath("GETUIDGID", path, err, recordKind);
        LogError("%{public}s was exchanged while it was copied, errno=%{public}d", path, err);
        return -1;
    }
    uid = st.st_uid;
    gid = st.st_gid;
    return 0;
}

int ChOwnCopy(const std::string& dst, const CopyTask& task, uid_t uid, gid_t gid, int& err, int recordKind) {
    return !task.destination || task.isByName ? DoChOwnRecurse(dst, uid, gid, err, recordKind)
                                              : DoChOwnRecurse(task.destination, dst, uid, gid, err, recordKind);
}

/// Whether the copy has been written to its disk. The descriptor is as old as the copy: what went wrong in writing back
/// since then shows here. One that is open for names only does not serve.
bool IsSynced(const std::string& dst, const UniqueFd& destination) {
    if (syncfs(destination.Get()) == 0) {
        return true;
    }
    if (errno != EBADF) {
        return false;
    }
    const UniqueFd again(open(dst.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return again && syncfs(again.Get()) == 0;
}

/// So that a power cut finds the copy when the source is gone.
int Flush(const std::string& src, const std::string& dst, const CopyTask& task, int& err, int recordKind) {
    if (!task.destination || IsSynced(dst, task.destination)) {
        return 0;
    }
    err = errno;
    LogError({"flush %{public}s failed, errno=%{public}d", "MoveByCopy"}, dst, err);
    RecordCopyErr(src, dst, err, recordKind);
    return -1;
}

/// Removes what was copied, and nothing else that bears its name by now: a directory is emptied by descriptor, and what
/// was none is not entered.
int RemoveSource(const std::string& src, const struct stat& copied, int& err, int recordKind) {
    std::string text = src;
    Entry entry = TopEntry(src, text);
    entry.type = S_ISDIR(copied.st_mode) ? DT_DIR : DT_REG;
    struct stat now {};
    const bool isThere = lstat(src.c_str(), &now) == 0;
    if (isThere && copied.st_ino != 0 && !IsSame(now, copied)) {
        return RemoveFailed(src, ESTALE, err, recordKind);
    }
    if (!isThere || entry.type == DT_REG) {
        return DoRemove(entry, err, recordKind);
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream || !stream.Is(copied)) {
        return RemoveFailed(src, stream ? ESTALE : errno, err, recordKind);
    }
    return DoRemove(std::move(stream), entry, err, recordKind);
}

int MoveByCopy(const std::string& src, const std::string& dst, CopyTask& task, int& err, int recordKind) {
    uid_t uid = 0;
    gid_t gid = 0;
    if (CopyRequest(src, dst, task, err, recordKind) != CopyOutcome::Done ||
        GetUidGid(src, task.source, uid, gid, err, recordKind) != 0 ||
        ChOwnCopy(dst, task, uid, gid, err, recordKind) != 0) {
        return -1;
    }
    if (task.skipped != 0) {
        LogWarn("%{public}lu links or special files of %{public}s are not copied, and removed with it", task.skipped,
                src);
    }
    if (Flush(src, dst, task, err, recordKind) != 0 || RemoveSource(src, task.source, err, recordKind) != 0) {
        return -1;
    }
    LogInfo("MoveByCopy %{public}s to %{public}s suc", src, dst);
    return 0;
}

/// @param task  what the copy has to heed if it comes to one
int MoveTask(const std::string& src, const std::string& dst, CopyTask task, int& err, int recordKind) {
    if (DoMove(src, dst, err, recordKind) == 0) {
        return 0;
    }
    if (err != EXDEV) {
        return -1;
    }
    LogError({"rename %{public}s to %{public}s failed EXDEV, use copy", "Move"}, src, dst);
    return MoveByCopy(src, dst, task, err, recordKind);
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
    return MoveTask(src, dst, {.isOwnerToChange = true}, err, recordKind);
}

int MoveChild(const std::string& src, const std::string& dst, int& err, int recordKind) {
    return MoveTask(src, dst, {.isBelowRequest = true, .isOwnerToChange = true}, err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
