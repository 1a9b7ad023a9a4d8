#include "move.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "copy.h"
#include "log.h"
#include "owner_mode.h"
#include "remove.h"
#include "sync.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Checks that the source's name still leads to the object that was copied. If nothing was copied, the owner is looked
/// up by that name.
int CheckSource(const Entry& src, const struct stat& copied, CopyJob& job, const Report& report) {
    struct stat st {};
    if (const int error = Lstat(src, st); error != 0) {
        return Fail(Step::LstatGetUidGid, src.path, error, report);
    }
    if (copied.st_ino == 0) {
        job.owner = {st.st_uid, st.st_gid};
        return 0;
    }
    return IsSame(st, copied) ? 0 : FailExchanged(src.path, report);
}

/// Gives everything at the destination the owner of the source. If this move created the destination, the copy has
/// already done so for each object.
int ChOwnCopy(const Entry& dst, const CopyResult& copy, const CopyJob& job, const Report& report) {
    if (copy.isOwned) {
        return job.ownerError;
    }
    const int error = !copy.destination || copy.isByName
                          ? DoChOwnRecurse(dst, job.owner, report)
                          : DoChOwnRecurse(copy.destination, dst.path, job.owner, report);
    return error != 0 ? error : job.ownerError.load();
}

/// The copy must be on its disk before the source is removed, because a power cut must not lose both.
int Flush(const std::string& src, const std::string& dst, const CopyResult& copy, const Report& report) {
    const int error = copy.destination ? SyncFileSystem(copy.destination, dst) : 0;
    return error == 0 ? 0 : FailFlush(src, dst, error, report);
}

/// Removes the source, but not another object that has taken its name: a directory is emptied by descriptor, and a
/// source that was copied as a file is not entered. Entries that have changed since they were copied stay.
int RemoveSource(Entry src, const struct stat& copied, const CopyJob& job, const Report& report) {
    RemovalGuard guard{*job.watch};
    src.type = S_ISDIR(copied.st_mode) ? DT_DIR : DT_REG;
    struct stat now {};
    const bool isThere = Lstat(src, now) == 0;
    if (isThere && copied.st_ino != 0 && !IsSame(now, copied)) {
        return Fail(Step::Remove, src.path, ESTALE, report);
    }
    if (!isThere || src.type == DT_REG) {
        return RemoveEntry(src, &guard, report);
    }
    DirectoryStream stream = DirectoryStream::Open(src);
    if (!stream || !stream.Is(copied)) {
        return Fail(Step::Remove, src.path, stream ? ESTALE : errno, report);
    }
    return FinishRemove(EmptyAndRemove(stream, src, &guard), src.path, report);
}

int MoveByCopy(const CopyPair& top, CopyJob& job, const Report& report) {
    const std::string& src = top.src.path;
    const std::string& dst = top.dst.path;
    CopyResult copy;
    int error = CopyRequest(top, job, report, copy);
    error = error == 0 ? CheckSource(top.src, copy.source, job, report) : error;
    error = error == 0 ? ChOwnCopy(top.dst, copy, job, report) : error;
    if (error == 0 && copy.skipped != 0) {
        LogWarn("%{public}lu links or special files of %{public}s are not copied, and removed with it",
                copy.skipped.load(), src);
    }
    error = error == 0 ? Flush(src, dst, copy, report) : error;
    error = error == 0 ? RemoveSource(top.src, copy.source, job, report) : error;
    if (error == 0) {
        LogRoutine(LogLevel::Info, "MoveByCopy %{public}s to %{public}s suc", src, dst);
    }
    return error;
}

int DoMove(const std::string& src, const std::string& dst, const Report& report) {
    if (rename(src.c_str(), dst.c_str()) != 0) {
        return FailRename(src, dst, errno, report);
    }
    LogRoutine(LogLevel::Info, "MoveByRename %{public}s to %{public}s suc", src, dst);
    return 0;
}

/// @param topLink  used only if rename fails with EXDEV and the move copies
int MoveTo(const std::string& src, const std::string& dst, Link topLink, const Report& report) {
    if (const int error = DoMove(src, dst, report); error != EXDEV) {
        return error;
    }
    LogRoutine(LogLevel::Error, {"rename %{public}s to %{public}s failed EXDEV, use copy", "Move"}, src, dst);
    TopPath from(src);
    TopPath to(dst);
    if (const int error = CheckSlashes(from, to); error != 0) {
        return FailCopy(src, dst, error, report);
    }
    Learned learned;
    SourceWatch watch;
    CopyJob job{
        {.topLink = to.DemandsDirectory() ? Link::Refuse : topLink, .finish = Finish::OwnerAndMode, .isKeptOpen = true},
        learned,
        &watch};
    return MoveByCopy({from.AsEntry(), to.AsEntry(), /*isTop=*/true}, job, report);
}

}  // namespace

int Move(const std::string& src, const std::string& dst, int& err, int recordKind) {
    return ResultOf(MoveTo(src, dst, Link::Follow, {err, recordKind}));
}

int MoveChild(const std::string& src, const std::string& dst, int& err, int recordKind) {
    return ResultOf(MoveTo(src, dst, Link::Refuse, {err, recordKind}));
}

}  // namespace TAVO::FileMigrateOrvane
