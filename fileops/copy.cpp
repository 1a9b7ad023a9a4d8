#include "copy.h"

#include <sys/stat.h>

#include <cerrno>

#include "log.h"
#include "path_helpers.h"
#include "prepare_dir.h"
#include "record_file.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// The walk of TryCopy: entry by entry, going on past what fails.
class TryCopyWalk {
public:
    TryCopyWalk(CopyJob& copyJob, CopyResult& copyResult, const Report& where)
        : job(copyJob), result(copyResult), report(where) {}

    /// The paths of the request. A destination that is open already is kept: its descriptor is as old as the copy.
    int CopyTop(const CopyPair& top);

private:
    int CopyChild(const CopyPair& pair);
    int CopyFile(const CopyPair& pair);
    int CopyDirectory(const CopyPair& pair);
    int CopyContents(DirectoryStream& from, const UniqueFd& into, const CopyPair& pair);
    int FailContents(DirectoryStream& from, const CopyPair& pair, int error);

    CopyJob& job;
    CopyResult& result;
    const Report& report;
};

int TryCopyWalk::CopyTop(const CopyPair& top) {
    DirectoryStream from = DirectoryStream::Open(top.src);
    if (!from || fstat(from.Fd(), &result.source) != 0) {
        return Fail(Step::OpenTryCopy, top.src.path, errno, report);
    }
    const int error = result.destination ? 0 : OpenDestination(top.dst, job.options.topLink, result);
    return error != 0 && job.options.topLink == Link::Refuse ? FailContents(from, top, error)
                                                             : CopyContents(from, result.destination, top);
}

int TryCopyWalk::CopyChild(const CopyPair& pair) {
    if (pair.src.type != DT_DIR) {
        return CopyFile(pair);
    }
    const int error = DoMkDir(pair.dst, report);
    return error == 0 ? CopyDirectory(pair) : error;
}

[[gnu::noinline]] int TryCopyWalk::CopyFile(const CopyPair& pair) {
    CopyJob fileJob{{.isOwnerToChange = job.options.isOwnerToChange}, job.data};
    CopyResult ignored;
    return DoCopy(pair, fileJob, ignored, report);
}

int TryCopyWalk::CopyDirectory(const CopyPair& pair) {
    DirectoryStream from = DirectoryStream::Open(pair.src);
    if (!from || from.Is(result.directory)) {
        return Fail(Step::OpenTryCopy, pair.src.path, from ? EINVAL : errno, report);
    }
    const UniqueFd into = OpenDirectory(pair.dst, Link::Refuse);
    if (!into) {
        return Fail(Step::OpenTryCopy, pair.dst.path, errno, report);
    }
    return CopyContents(from, into, pair);
}

int TryCopyWalk::CopyContents(DirectoryStream& from, const UniqueFd& into, const CopyPair& pair) {
    int lastError = 0;
    result.skipped += VisitFilesAndDirectories(from, into, pair, [&](const CopyPair& child) {
        if (const int error = CopyChild(child); error != 0) {
            lastError = error;
        }
    });
    return from.ReadError() == 0 ? lastError : Fail(Step::OpenTryCopy, pair.src.path, from.ReadError(), report);
}

/// Fails every entry with the error for which the destination could not be opened. Going by the entries' paths instead
/// could follow a link that has taken the destination's name.
int TryCopyWalk::FailContents(DirectoryStream& from, const CopyPair& pair, int error) {
    int lastError = 0;
    VisitFilesAndDirectories(from, UniqueFd(), pair, [&](const CopyPair& child) {
        lastError = child.src.type == DT_DIR ? FailMkDir(child.dst.path, CREATE_MODE, error, report)
                                             : FailCopy(child.src.path, child.dst.path, error, report);
    });
    return lastError;
}

/// The destination of a directory must exist. Directories below it are created with mode 0700. Entries that are neither
/// regular files nor directories are left out, as are those whose type the file system does not give.
int TryCopy(const CopyPair& top, CopyJob& job, CopyResult& result, const Report& report) {
    result.skipped = 0;
    return TakeForDirectory(top.src, {report.err, RECORD_KIND_NONE}) ? TryCopyWalk(job, result, report).CopyTop(top)
                                                                     : DoCopy(top, job, result, report);
}

int CopyTo(const std::string& src, const std::string& dst, Link topLink, const Report& report) {
    std::string srcText = src;
    std::string dstText = dst;
    FileData data;
    CopyJob job{{.topLink = topLink}, data};
    CopyResult result;
    return CopyRequest({TopEntry(src, srcText), TopEntry(dst, dstText), /*isTop=*/true}, job, result, report);
}

}  // namespace

int DoCopy(const CopyPair& pair, CopyJob& job, CopyResult& result, const Report& report) {
    int error = CopyStrictly(pair, job, result);
    if (error == 0 && !job.options.isKeptOpen && result.destination.Close() != 0) {
        error = errno;
    }
    return error == 0 ? 0 : FailCopy(pair.src.path, pair.dst.path, error, report);
}

int CopyRequest(const CopyPair& top, CopyJob& job, CopyResult& result, const Report& report) {
    const int error = DoCopy(top, job, result, report);
    if (error == 0 || result.isOntoItself) {
        return error;
    }
    LogError({"orig copy meet err, try skip err", "Copy"});
    return TryCopy(top, job, result, report);
}

int Copy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    return ResultOf(CopyTo(src, dst, Link::Follow, {err, recordKind}));
}

int CopyChild(const std::string& src, const std::string& dst, int& err, int recordKind) {
    return ResultOf(CopyTo(src, dst, Link::Refuse, {err, recordKind}));
}

int RefuseOntoItself(const std::string& src, const std::string& dst, const Report& report) {
    const int error = FindOntoItself(src, dst);
    return error == 0 ? 0 : FailCopy(src, dst, error, report);
}

}  // namespace TAVO::FileMigrateOrvane
