#include "copy.h"

#include <sys/stat.h>

#include <cerrno>

#include "copy_walk.h"
#include "log.h"
#include "path_helpers.h"
#include "prepare_dir.h"
#include "record_file.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// The walk of TryCopy, which continues after an entry that fails.
class TryCopyWalk final : public CopyWalk {
public:
    TryCopyWalk(CopyJob& copyJob, CopyResult& copyResult)
        : CopyWalk(OnFailure::Continue, Threads::Many), job(copyJob), result(copyResult) {}

    /// Copies the request's source. If the destination is already open, keeps that descriptor, because it was opened
    /// when the copy began.
    int CopyTop(const CopyPair& top, const Report& report);

private:
    int VisitPair(const CopyPair& pair, const CopyLevel& level, const Report& report) override;
    int CopyFile(const CopyPair& pair, const Report& report);
    int CopyDirectory(const CopyPair& pair, const Report& report);
    int CopyContents(DirectoryStream& from, const CopyPair& pair, const UniqueFd& into, const Report& report);

    CopyJob& job;
    CopyResult& result;
};

/// Reports for every entry the error that prevented opening the destination. Trying the entries by their paths could
/// follow a link that has taken the destination's name.
int FailContents(DirectoryStream& from, const CopyPair& pair, int error, const Report& report) {
    int lastError = 0;
    while (const dirent* name = from.Next()) {
        const ChildPath joinedSrc(pair.src.path, name->d_name);
        const ChildPath joinedDst(pair.dst.path, name->d_name);
        const Entry src = from.Child(*name, pair.src.path);
        if (IsToBeCopied(src)) {
            lastError = src.type == DT_DIR ? FailMkDir(pair.dst.path, CREATE_MODE, error, report)
                                           : FailCopy(pair.src.path, pair.dst.path, error, report);
        }
    }
    return lastError;
}

int TryCopyWalk::CopyTop(const CopyPair& top, const Report& report) {
    DirectoryStream from = DirectoryStream::Open(top.src);
    struct stat source {};
    if (!from || fstat(from.Fd(), &source) != 0) {
        return Fail(Step::OpenTryCopy, top.src.path, errno, report);
    }
    NoteTop(source, job, result);
    const int error = result.destination ? 0 : OpenDestination(top.dst, job.options.topLink, result);
    return error != 0 && job.options.topLink == Link::Refuse ? FailContents(from, top, error, report)
                                                             : CopyContents(from, top, result.destination, report);
}

int TryCopyWalk::VisitPair(const CopyPair& pair, const CopyLevel& /*level*/, const Report& report) {
    if (!IsToBeCopied(pair.src)) {
        ++result.skipped;
        NoteLeftOut(pair.src, job);
        return 0;
    }
    if (pair.src.type != DT_DIR) {
        return CopyFile(pair, report);
    }
    const int error = DoMkDir(pair.dst, report);
    return error == 0 ? CopyDirectory(pair, report) : error;
}

[[gnu::noinline]] int TryCopyWalk::CopyFile(const CopyPair& pair, const Report& report) {
    CopyJob fileJob{{.finish = job.options.finish}, job.learned, job.watch, job.owner};
    CopyResult ignored;
    const int error = DoCopy(pair, fileJob, report, ignored);
    if (fileJob.ownerError != 0) {
        job.ownerError = fileJob.ownerError.load();
    }
    return error;
}

int TryCopyWalk::CopyDirectory(const CopyPair& pair, const Report& report) {
    NoteLeftOut(pair.src, job);
    DirectoryStream from = DirectoryStream::Open(pair.src);
    if (!from || from.Is(result.directory)) {
        return Fail(Step::OpenTryCopy, pair.src.path, from ? EINVAL : errno, report);
    }
    const UniqueFd into = OpenDirectory(pair.dst, Link::Refuse);
    if (!into) {
        return Fail(Step::OpenTryCopy, pair.dst.path, errno, report);
    }
    return CopyContents(from, pair, into, report);
}

int TryCopyWalk::CopyContents(DirectoryStream& from, const CopyPair& pair, const UniqueFd& into, const Report& report) {
    const int error = VisitChildren(from, pair, {into}, report);
    return from.ReadError() == 0 ? error : Fail(Step::OpenTryCopy, pair.src.path, from.ReadError(), report);
}

/// The destination of a directory must exist. Directories below it are created with mode 0700. Entries that are neither
/// regular files nor directories are skipped.
int TryCopy(const CopyPair& top, CopyJob& job, const Report& report, CopyResult& result) {
    result.skipped = 0;
    result.isOwned = false;
    job.ownerError = 0;
    return TakeForDirectory(top.src, {report.err, RECORD_KIND_NONE}) ? TryCopyWalk(job, result).CopyTop(top, report)
                                                                     : DoCopy(top, job, report, result);
}

int CopyTo(const std::string& src, const std::string& dst, Link topLink, const Report& report) {
    TopPath from(src);
    TopPath to(dst);
    if (const int error = CheckSlashes(from, to); error != 0) {
        return FailCopy(src, dst, error, report);
    }
    Learned learned;
    CopyJob job{{.topLink = to.DemandsDirectory() ? Link::Refuse : topLink}, learned};
    CopyResult result;
    return CopyRequest({from.AsEntry(), to.AsEntry(), /*isTop=*/true}, job, report, result);
}

}  // namespace

int DoCopy(const CopyPair& pair, CopyJob& job, const Report& report, CopyResult& result) {
    int error = CopyStrictly(pair, job, report, result);
    if (error == 0 && !job.options.isKeptOpen && result.destination.Close() != 0) {
        error = errno;
    }
    return error == 0 ? 0 : FailCopy(pair.src.path, pair.dst.path, error, report);
}

int CopyRequest(const CopyPair& top, CopyJob& job, const Report& report, CopyResult& result) {
    const int error = DoCopy(top, job, report, result);
    if (error == 0 || result.isOntoItself || result.isExchanged) {
        return error;
    }
    LogError({"orig copy meet err, try skip err", "Copy"});
    return TryCopy(top, job, report, result);
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
