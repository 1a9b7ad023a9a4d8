#include "copy.h"

#include <sys/stat.h>

#include <cerrno>

#include "log.h"
#include "path_helpers.h"
#include "prepare_dir.h"
#include "record_file.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// The walk of TryCopy, which continues after an entry that fails.
class TryCopyWalk {
public:
    TryCopyWalk(CopyJob& copyJob, CopyResult& copyResult) : job(copyJob), result(copyResult), report(copyJob.report) {}

    /// Copies the request's source. If the destination is already open, keeps that descriptor, because it was opened
    /// when the copy began.
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
    struct stat source {};
    if (!from || fstat(from.Fd(), &source) != 0) {
        return Fail(Step::OpenTryCopy, top.src.path, errno, report);
    }
    NoteTop(source, job, result);
    const int error = result.destination ? 0 : OpenDestination(top.dst, job.options.topLink, result);
    return error != 0 && job.options.topLink == Link::Refuse ? FailContents(from, top, error)
                                                             : CopyContents(from, result.destination, top);
}

int TryCopyWalk::CopyChild(const CopyPair& pair) {
    if (!IsToBeCopied(pair.src)) {
        ++result.skipped;
        NoteLeftOut(pair.src, job);
        return 0;
    }
    if (pair.src.type != DT_DIR) {
        return CopyFile(pair);
    }
    const int error = DoMkDir(pair.dst, report);
    return error == 0 ? CopyDirectory(pair) : error;
}

[[gnu::noinline]] int TryCopyWalk::CopyFile(const CopyPair& pair) {
    CopyJob fileJob{{.finish = job.options.finish}, report, job.learned, job.watch, job.owner};
    CopyResult ignored;
    const int error = DoCopy(pair, fileJob, ignored);
    job.ownerError = fileJob.ownerError != 0 ? fileJob.ownerError : job.ownerError;
    return error;
}

int TryCopyWalk::CopyDirectory(const CopyPair& pair) {
    NoteLeftOut(pair.src, job);
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
    VisitChildren(from, into, pair, [&](const CopyPair& child) {
        if (const int error = CopyChild(child); error != 0) {
            lastError = error;
        }
    });
    return from.ReadError() == 0 ? lastError : Fail(Step::OpenTryCopy, pair.src.path, from.ReadError(), report);
}

/// Reports for every entry the error that prevented opening the destination. Trying the entries by their paths could
/// follow a link that has taken the destination's name.
int TryCopyWalk::FailContents(DirectoryStream& from, const CopyPair& pair, int error) {
    int lastError = 0;
    VisitChildren(from, UniqueFd(), pair, [&](const CopyPair& child) {
        if (!IsToBeCopied(child.src)) {
            return;
        }
        lastError = child.src.type == DT_DIR ? FailMkDir(child.dst.path, CREATE_MODE, error, report)
                                             : FailCopy(child.src.path, child.dst.path, error, report);
    });
    return lastError;
}

/// The destination of a directory must exist. Directories below it are created with mode 0700. Entries that are neither
/// regular files nor directories are skipped.
int TryCopy(const CopyPair& top, CopyJob& job, CopyResult& result) {
    result.skipped = 0;
    result.isOwned = false;
    job.ownerError = 0;
    return TakeForDirectory(top.src, {job.report.err, RECORD_KIND_NONE}) ? TryCopyWalk(job, result).CopyTop(top)
                                                                         : DoCopy(top, job, result);
}

int CopyTo(const std::string& src, const std::string& dst, Link topLink, const Report& report) {
    TopPath from(src);
    TopPath to(dst);
    if (const int error = CheckSlashes(from, to); error != 0) {
        return FailCopy(src, dst, error, report);
    }
    Learned learned;
    CopyJob job{{.topLink = to.DemandsDirectory() ? Link::Refuse : topLink}, report, learned};
    CopyResult result;
    return CopyRequest({from.AsEntry(), to.AsEntry(), /*isTop=*/true}, job, result);
}

}  // namespace

int DoCopy(const CopyPair& pair, CopyJob& job, CopyResult& result) {
    int error = CopyStrictly(pair, job, result);
    if (error == 0 && !job.options.isKeptOpen && result.destination.Close() != 0) {
        error = errno;
    }
    return error == 0 ? 0 : FailCopy(pair.src.path, pair.dst.path, error, job.report);
}

int CopyRequest(const CopyPair& top, CopyJob& job, CopyResult& result) {
    const int error = DoCopy(top, job, result);
    if (error == 0 || result.isOntoItself || result.isExchanged) {
        return error;
    }
    LogError({"orig copy meet err, try skip err", "Copy"});
    return TryCopy(top, job, result);
}

int Copy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    return ResultOf(CopyTo(src, dst, Link::Follow, {err, recordKind}));
}

int CopyChild(const std::string& src, const std::string& dst, int& err, int recordKind) {
    return ResultOf(CopyTo(src, dst, Link::Refuse, {err, recordKind}));
}

int CheckSlashes(const TopPath& src, const TopPath& dst) {
    if (const int error = src.Check() != 0 ? src.Check() : dst.Check(); error != 0) {
        return error;
    }
    return dst.DemandsDirectory() && dst.Type() == 0 && src.Type() == S_IFREG ? EISDIR : 0;
}

}  // namespace TAVO::FileMigrateOrvane
