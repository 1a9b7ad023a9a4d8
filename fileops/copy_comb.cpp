#include "copy_comb.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <string>
#include <utility>

#include "copy.h"
#include "directory_stream.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "prepare_dir.h"
#include "record_file.h"
#include "remove.h"

namespace TAVO::FileMigrateOrvane {
namespace {

class CombinedCopy {
public:
    CombinedCopy(const PermPara& permPara, const Report& where) : perm(permPara), report(where) {}

    int CopyFile(const CopyPair& pair);
    int CopyDirectory(const CopyPair& pair);

private:
    int CopyAndFinish(const CopyPair& pair, CopyResult& result);
    int CopyChild(const CopyPair& pair);
    int OpenInto(const CopyPair& pair, UniqueFd& into);
    int RemoveSource(DirectoryStream from, const CopyPair& pair, int copyError);

    const PermPara& perm;
    const Report& report;
    Learned learned;
    CopyJob file{{.finish = Finish::Nothing, .isKeptOpen = true}, report, learned, {perm.uid, perm.gid}};
    /// Of the request's destination. If that cannot be opened this stays zero and matches no directory.
    struct stat destination {};
    bool hasMetDestination = false;  ///< it is inside the source: the directories above it must not be removed
};

/// Copies one file and gives the very file that was filled its mode and owner.
int CombinedCopy::CopyAndFinish(const CopyPair& pair, CopyResult& result) {
    if (const int error = DoCopy(pair, file, result); error != 0) {
        return error;
    }
    if (const int error = SetModeAndOwner(result.destination, pair.dst.path, perm, report); error != 0) {
        return error;
    }
    return result.destination.Close() == 0 ? 0 : FailCopy(pair.src.path, pair.dst.path, errno, report);
}

/// The source is removed whether or not it was copied; it stays only if the request names one object twice.
[[gnu::noinline]] int CombinedCopy::CopyFile(const CopyPair& pair) {
    CopyResult result;
    const int copyError = CopyAndFinish(pair, result);
    if (result.isOntoItself) {
        return copyError;
    }
    const int unlinkError = DoUnlink(pair.src, report);
    return unlinkError == 0 ? copyError : unlinkError;
}

/// A child of a directory: a subdirectory is prepared before it is entered.
int CombinedCopy::CopyChild(const CopyPair& pair) {
    if (pair.src.type != DT_DIR) {
        return CopyFile(pair);
    }
    const int error = DoPrepareDir(pair.dst, perm, report);
    return error == 0 ? CopyDirectory(pair) : error;
}

int CombinedCopy::CopyDirectory(const CopyPair& pair) {
    DirectoryStream from = DirectoryStream::Open(pair.src);
    if (!from) {
        return Fail(Step::OpenCopyComb, pair.src.path, errno, report);
    }
    if (from.Is(destination)) {
        hasMetDestination = true;
        return FailCopy(pair.src.path, pair.dst.path, EINVAL, report);
    }
    UniqueFd into;
    if (const int error = OpenInto(pair, into); error != 0) {
        return error;
    }
    int lastError = 0;
    VisitFilesAndDirectories(from, into, pair, [&](const CopyPair& child) {
        if (const int error = CopyChild(child); error != 0) {
            lastError = error;
        }
    });
    if (from.ReadError() != 0) {  // entries that were not read were not tried either
        return Fail(Step::OpenCopyComb, pair.src.path, from.ReadError(), report);
    }
    return RemoveSource(std::move(from), pair, lastError);
}

/// Without a destination for the top, each entry is tried by its path and fails as that requires.
int CombinedCopy::OpenInto(const CopyPair& pair, UniqueFd& into) {
    into = OpenDirectory(pair.dst, pair.isTop ? Link::Follow : Link::Refuse);
    if (pair.isTop) {
        (void)fstat(into.Get(), &destination);
        return 0;
    }
    return into ? 0 : Fail(Step::OpenCopyComb, pair.dst.path, errno, report);
}

/// Removes a source directory with everything that is still in it.
int CombinedCopy::RemoveSource(DirectoryStream from, const CopyPair& pair, int copyError) {
    // Where something failed in a tree deeper than any call accepts paths, each removal would fail anew; one removal
    // further up does for all.
    const bool isLeftToAncestor = copyError != 0 && pair.src.path.length() >= PATH_MAX;
    if (hasMetDestination || isLeftToAncestor) {
        return copyError;
    }
    const int error = RemoveOpen(std::move(from), pair.src, report);
    return error == 0 ? copyError : error;
}

}  // namespace

int CopyCombRecurse(const std::string& src, const std::string& dst, const PermPara& perm, int& err, int recordKind) {
    const Report report{err, recordKind};
    TopPath from(src);
    TopPath to(dst);
    const CopyPair top{from.AsEntry(), to.AsEntry(), /*isTop=*/true};
    if (const int error = CheckSlashes(from, to); error != 0) {
        return ResultOf(FailCopy(src, dst, error, report));
    }
    CombinedCopy copy(perm, report);
    if (!TakeForDirectory(top.src, {err, RECORD_KIND_NONE})) {
        return ResultOf(copy.CopyFile(top));
    }
    const int error = FindOntoItself(top.src.name, top.dst.name);
    return ResultOf(error == 0 ? copy.CopyDirectory(top) : FailCopy(src, dst, error, report));
}

}  // namespace TAVO::FileMigrateOrvane
