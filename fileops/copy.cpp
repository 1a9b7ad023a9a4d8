#include "copy.h"

#include <cerrno>

#include "error_record.h"
#include "log.h"
#include "prepare_dir.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// @param path  of the directory that could not be opened or read, on whichever side
[[gnu::noinline]] int OpenFailed(const std::string& path, int error, int& err, int recordKind) {
    err = error;
    LogError({"open dir %{public}s failed, errno %{public}d", "TryCopy"}, path, err);
    RecordNormalErr("OPEN_TRYCOPY", path, err, recordKind);
    return -1;
}

[[gnu::noinline]] int TryCopyFile(const Entry& src, const Entry& dst, CopyTask& task, int& err, int recordKind) {
    CopyTask fileTask{.isOwnerToChange = task.isOwnerToChange, .data = task.data};
    const CopyOutcome outcome = DoCopy(src, dst, fileTask, err, recordKind);
    task.data = fileTask.data;
    return outcome == CopyOutcome::Done ? 0 : -1;
}

int TryCopyDirectory(const Entry& src, const Entry& dst, CopyTask& task, int& err, int recordKind);

int TryCopyChild(const Entry& src, const Entry& dst, CopyTask& task, int& err, int recordKind) {
    if (src.type != DT_DIR) {
        return TryCopyFile(src, dst, task, err, recordKind);
    }
    return DoMkDir(dst, err, recordKind) == 0 ? TryCopyDirectory(src, dst, task, err, recordKind) : -1;
}

/// @param into  the open destination
int TryCopyContents(DirectoryStream& from, const Entry& src, const UniqueFd& into, const Entry& dst, CopyTask& task,
                    int& err, int recordKind) {
    int result = 0;
    VisitFilesAndDirectories(from, src.path, into, dst.path, task.skipped,
                             [&](const Entry& srcChild, const Entry& dstChild) {
                                 if (TryCopyChild(srcChild, dstChild, task, err, recordKind) != 0) {
                                     result = -1;
                                 }
                             });
    return from.ReadError() == 0 ? result : OpenFailed(src.path, from.ReadError(), err, recordKind);
}

/// A directory below those of the request.
int TryCopyDirectory(const Entry& src, const Entry& dst, CopyTask& task, int& err, int recordKind) {
    DirectoryStream from = DirectoryStream::Open(src);
    if (!from || from.Is(task.directory)) {
        return OpenFailed(src.path, from ? EINVAL : errno, err, recordKind);
    }
    const UniqueFd into = OpenDirectory(dst, O_NOFOLLOW);
    if (!into) {
        return OpenFailed(dst.path, errno, err, recordKind);
    }
    return TryCopyContents(from, src, into, dst, task, err, recordKind);
}

/// Fails every entry as it does where the destination cannot be opened. To try would be to go by its path, which can be
/// that of a link by then.
int FailContents(DirectoryStream& from, const Entry& src, const Entry& dst, int error, int& err, int recordKind) {
    int result = 0;
    std::size_t unused = 0;
    VisitFilesAndDirectories(
        from, src.path, UniqueFd(), dst.path, unused, [&](const Entry& srcChild, const Entry& dstChild) {
            result = srcChild.type == DT_DIR ? MkDirFailed(dstChild.path, error, err, recordKind)
                                             : CopyFailed(srcChild.path, dstChild.path, error, err, recordKind);
        });
    return result;
}

/// The paths of a request. A destination that is open already is kept: its descriptor is as old as the copy.
int TryCopyRequest(const Entry& src, const Entry& dst, CopyTask& task, int& err, int recordKind) {
    task.skipped = 0;
    if (!TakeForDirectory(src, err)) {
        return DoCopy(src, dst, task, err, recordKind) == CopyOutcome::Done ? 0 : -1;
    }
    DirectoryStream from = DirectoryStream::Open(src);
    if (!from || fstat(from.Fd(), &task.source) != 0) {
        return OpenFailed(src.path, errno, err, recordKind);
    }
    if (!task.destination) {
        task.destination = OpenDestination(dst, task);
    }
    if (!task.destination && task.isBelowRequest) {
        return FailContents(from, src, dst, errno, err, recordKind);
    }
    return TryCopyContents(from, src, task.destination, dst, task, err, recordKind);
}

}  // namespace

CopyOutcome DoCopy(const Entry& src, const Entry& dst, CopyTask& task, int& err, int recordKind) {
    CopyOutcome outcome = CopyStrictly(src, dst, task, err);
    // A caller who changes the owner needs the copy open; others learn here what closing it has to tell.
    if (outcome == CopyOutcome::Done && !task.isOwnerToChange && task.destination.Close() != 0) {
        err = errno;
        outcome = CopyOutcome::Failed;
    }
    if (outcome != CopyOutcome::Done) {
        (void)CopyFailed(src.path, dst.path, err, err, recordKind);  // the outcome says more
    }
    return outcome;
}

int DoCopy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    std::string srcText = src;
    std::string dstText = dst;
    CopyTask task;
    return DoCopy(TopEntry(src, srcText), TopEntry(dst, dstText), task, err, recordKind) == CopyOutcome::Done ? 0 : -1;
}

CopyOutcome CopyRequest(const std::string& src, const std::string& dst, CopyTask& task, int& err, int recordKind) {
    std::string srcText = src;
    std::string dstText = dst;
    const Entry from = TopEntry(src, srcText);
    const Entry to = TopEntry(dst, dstText);
    const CopyOutcome outcome = DoCopy(from, to, task, err, recordKind);
    if (outcome != CopyOutcome::Failed) {
        return outcome;
    }
    LogError({"orig copy meet err, try skip err", "Copy"});
    return TryCopyRequest(from, to, task, err, recordKind) == 0 ? CopyOutcome::Done : CopyOutcome::Failed;
}

int Copy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    CopyTask task;
    return CopyRequest(src, dst, task, err, recordKind) == CopyOutcome::Done ? 0 : -1;
}

int CopyChild(const std::string& src, const std::string& dst, int& err, int recordKind) {
    CopyTask task{.isBelowRequest = true};
    return CopyRequest(src, dst, task, err, recordKind) == CopyOutcome::Done ? 0 : -1;
}

int TryCopy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    std::string srcText = src;
    std::string dstText = dst;
    CopyTask task;
    return TryCopyRequest(TopEntry(src, srcText), TopEntry(dst, dstText), task, err, recordKind);
}

int RefuseOntoItself(const std::string& src, const std::string& dst, int& err, int recordKind) {
    const int error = FindOntoItself(src, dst);
    return error == 0 ? 0 : CopyFailed(src, dst, error, err, recordKind);
}

[[gnu::noinline]] int CopyFailed(const std::string& src, const std::string& dst, int error, int& err, int recordKind) {
    err = error;
    LogError({"copy %{public}s to %{public}s failed, errno=%{public}d", "DoCopy"}, src, dst, err);
    RecordCopyErr(src, dst, err, recordKind);
    return -1;
}

}  // namespace TAVO::FileMigrateOrvane
