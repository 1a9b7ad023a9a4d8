#include "copy_comb.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <string>
#include <utility>

#include "copy.h"
#include "directory_stream.h"
#include "error_record.h"
#include "log.h"
#include "owner_mode.h"
#include "prepare_dir.h"
#include "remove.h"

namespace TAVO::FileMigrateOrvane {
namespace {

struct CombTask {
    const PermPara& perm;
    CopyTask file{.isOwnerToChange = true, .isModeToChange = true};
    struct stat directory {};        ///< of the request's destination, once it is open
    bool hasMetDestination = false;  ///< it lies inside the source: what holds it must not be removed
};

/// Copies one file and gives the very file that was filled its mode and owner. Then the source goes, copied or not;
/// it stays only where the request names one object twice.
[[gnu::noinline]] int CopyCombFile(const Entry& src, const Entry& dst, CombTask& task, int& err, int recordKind) {
    const CopyOutcome outcome = DoCopy(src, dst, task.file, err, recordKind);
    if (outcome == CopyOutcome::OntoItself) {
        return -1;
    }
    int copied = outcome == CopyOutcome::Done
                     ? SetModeAndOwner(task.file.destination, dst.path, task.perm, err, recordKind)
                     : -1;
    if (copied == 0 && task.file.destination.Close() != 0) {
        copied = CopyFailed(src.path, dst.path, errno, err, recordKind);
    }
    return DoUnlink(src.dirFd, src.name, src.path, err, recordKind) == 0 ? copied : -1;
}

[[gnu::noinline]] int OpenFailed(const std::string& path, int& err, int recordKind) {
    err = errno;
    LogError({"open dir %{public}s failed, errno %{public}d", "CopyCombRecurse"}, path, err);
    RecordNormalErr("OPEN_COPYCOMBRECURSE", path, err, recordKind);
    return -1;
}

int CopyCombDirectory(const Entry& src, const Entry& dst, int noFollow, CombTask& task, int& err, int recordKind);

/// A child of a directory: a subdirectory is prepared before it is entered.
int CopyCombChild(const Entry& src, const Entry& dst, CombTask& task, int& err, int recordKind) {
    if (src.type != DT_DIR) {
        return CopyCombFile(src, dst, task, err, recordKind);
    }
    return DoPrepareDir(dst, task.perm, err, recordKind) == 0
               ? CopyCombDirectory(src, dst, O_NOFOLLOW, task, err, recordKind)
               : -1;
}

/// @param noFollow  O_NOFOLLOW, or 0 where the destination is a request's path
int CopyCombDirectory(const Entry& src, const Entry& dst, int noFollow, CombTask& task, int& err, int recordKind) {
    DirectoryStream from = DirectoryStream::Open(src);
    if (!from) {
        return OpenFailed(src.path, err, recordKind);
    }
    if (from.Is(task.directory)) {
        task.hasMetDestination = true;
        return CopyFailed(src.path, dst.path, EINVAL, err, recordKind);
    }
    const UniqueFd into = OpenDirectory(dst, noFollow);
    if (noFollow == 0) {
        (void)fstat(into.Get(), &task.directory);  // of none, the walk meets none
    } else if (!into) {
        return OpenFailed(dst.path, err, recordKind);
    }
    int result = 0;
    std::size_t skipped = 0;
    VisitFilesAndDirectories(from, src.path, into, dst.path, skipped,
                             [&](const Entry& srcChild, const Entry& dstChild) {
                                 if (CopyCombChild(srcChild, dstChild, task, err, recordKind) != 0) {
                                     result = -1;
                                 }
                             });
    if (from.ReadError() != 0) {
        errno = from.ReadError();
        return OpenFailed(src.path, err, recordKind);  // what was not read was not tried either
    }
    // Of a tree deeper than any call takes paths, one removal further up does for all: each of these would fail anew.
    const bool isLeftToOthers = result != 0 && src.path.length() >= PATH_MAX;
    if (task.hasMetDestination || isLeftToOthers) {
        return -1;
    }
    // Always, with whatever is still in it.
    return DoRemove(std::move(from), src, err, recordKind) == 0 ? result : -1;
}

}  // namespace

int CopyCombRecurse(const std::string& src, const std::string& dst, const PermPara& perm, int& err, int recordKind) {
    std::string srcText = src;
    std::string dstText = dst;
    const Entry from = TopEntry(src, srcText);
    const Entry to = TopEntry(dst, dstText);
    CombTask task{perm};
    if (!TakeForDirectory(from, err)) {
        return CopyCombFile(from, to, task, err, recordKind);
    }
    return RefuseOntoItself(src, dst, err, recordKind) == 0
               ? CopyCombDirectory(from, to, /*noFollow=*/0, task, err, recordKind)
               : -1;
}

}  // namespace TAVO::FileMigrateOrvane
