#include "copy_engine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "access_acl.h"
#include "copy_file.h"
#include "copy_walk.h"
#include "new_directory.h"
#include "path_helpers.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// The mode bits that mkdir() sets; it inherits the set-group-ID bit from the parent instead.
constexpr mode_t DIRECTORY_BITS = 01777;

/// Neither a file nor a directory nor a link.
bool IsOther(const struct stat& st) {
    return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode) && !S_ISLNK(st.st_mode);
}

/// A directory to copy: either open, or with the error that prevented it. An error at the destination takes precedence
/// over this one.
struct SourceDirectory {
    DirectoryStream stream;
    mode_t mode = 0;  ///< the bits of its mode that the copy may get
    gid_t group = 0;
    int error = 0;
    bool isSeen = true;  ///< lstat works on it
};

/// The copy of one tree. The functions that copy store the object at the destination in `made`; for the top, that is
/// the result's `destination`. Below the top, several threads may work, and of the result they change only what is
/// atomic.
class StrictCopy final : public CopyWalk {
public:
    StrictCopy(CopyJob& copyJob, CopyResult& copyResult)
        : CopyWalk(OnFailure::Stop, Threads::Many), job(copyJob), result(copyResult) {}

    int CopyTop(const CopyPair& pair, const Report& report) {
        return pair.src.type == DT_REG ? CopyFile(pair, job, report, result, result.destination)
                                       : CopyOther(pair, report, result.destination);
    }

private:
    int VisitPair(const CopyPair& pair, const CopyLevel& level, const Report& report) override;
    int CopyOther(const CopyPair& pair, const Report& report, UniqueFd& made);
    int CopyChildFile(const CopyPair& pair, const Report& report);
    int CopyDirectory(const CopyPair& pair, const Report& report, UniqueFd& made);
    int CopyContents(DirectoryStream& from, const CopyPair& pair, const CopyLevel& level, const Report& report);
    int FillNew(SourceDirectory& source, const CopyPair& pair, const Report& report, UniqueFd& made);
    int FillSheltered(SourceDirectory& source, const CopyPair& pair, const Report& report, UniqueFd& made);

    SourceDirectory OpenSource(const CopyPair& pair);
    int MakeDirectory(const CopyPair& pair, const SourceDirectory& source, bool& isNew);
    int OpenNew(const CopyPair& pair, NewDirectory& directory, UniqueFd& made);
    int OpenExisting(const CopyPair& pair, UniqueFd& made);
    bool GiveOwner(const Entry& dst, const UniqueFd& directory, const Report& report);
    int PassOver(const CopyPair& pair);

    CopyJob& job;
    CopyResult& result;
};

int StrictCopy::VisitPair(const CopyPair& pair, const CopyLevel& /*level*/, const Report& report) {
    if (pair.src.type == DT_REG) {
        return CopyChildFile(pair, report);
    }
    UniqueFd made;
    const int error = CopyOther(pair, report, made);
    return error == 0 && made.Close() != 0 ? errno : error;
}

int StrictCopy::CopyOther(const CopyPair& pair, const Report& report, UniqueFd& made) {
    return pair.src.type == DT_DIR ? CopyDirectory(pair, report, made) : PassOver(pair);
}

[[gnu::noinline]] int StrictCopy::CopyChildFile(const CopyPair& pair, const Report& report) {
    CopyResult ofFile;
    const int error = CopyFile(pair, job, report, ofFile, ofFile.destination);
    // Network file systems report a full disk here.
    return error == 0 && ofFile.destination.Close() != 0 ? errno : error;
}

int StrictCopy::CopyDirectory(const CopyPair& pair, const Report& report, UniqueFd& made) {
    SourceDirectory source = OpenSource(pair);
    bool isNew = false;
    if (const int error = MakeDirectory(pair, source, isNew); error != 0) {
        return error;
    }
    if (isNew) {
        return pair.isSheltered ? FillSheltered(source, pair, report, made) : FillNew(source, pair, report, made);
    }
    const int error = OpenExisting(pair, made);
    return error == 0 ? CopyContents(source.stream, pair, {made}, report) : error;
}

int StrictCopy::CopyContents(DirectoryStream& from, const CopyPair& pair, const CopyLevel& level,
                             const Report& report) {
    const int error = VisitChildren(from, pair, level, report);
    return error == 0 ? from.ReadError() : error;
}

/// Fills a new directory that others may reach. It gets its owner and mode at the end, even after a failure.
int StrictCopy::FillNew(SourceDirectory& source, const CopyPair& pair, const Report& report, UniqueFd& made) {
    NewDirectory directory;
    if (const int error = OpenNew(pair, directory, made); error != 0) {
        return error;
    }
    // What is created in a directory of another group may belong to that group.
    const bool isSheltered = directory.Group() == getegid();
    const int error = CopyContents(source.stream, pair, {made, isSheltered}, report);
    if (pair.isTop) {
        result.isOwned = error == 0;
    }
    mode_t mode = S_IRWXU;  // without the mark of an unfinished directory
    if (GiveOwner(pair.dst, made, report)) {
        mode = source.mode & DIRECTORY_BITS & ~job.learned.Umask();
        mode = job.options.finish == Finish::Mode ? LimitToGroup(mode, made.Get(), source.group) : mode;
        mode |= directory.InheritedBits();
    }
    const bool hasFailed = fchmod(made.Get(), mode) != 0;
    return error == 0 && hasFailed ? errno : error;
}

/// Fills a new directory that already has its mode. Its owner, if it gets one, is set last.
int StrictCopy::FillSheltered(SourceDirectory& source, const CopyPair& pair, const Report& report, UniqueFd& made) {
    made = OpenDirectory(pair.dst, Link::Refuse);
    if (!made) {
        return errno;
    }
    const int error = CopyContents(source.stream, pair, {made, /*isSheltered=*/true}, report);
    (void)GiveOwner(pair.dst, made, report);
    return error;
}

/// @return false if the owner could not be set
[[gnu::noinline]] bool StrictCopy::GiveOwner(const Entry& dst, const UniqueFd& directory, const Report& report) {
    const auto& [uid, gid] = job.owner;
    if (job.options.finish == Finish::OwnerAndMode && fchown(directory.Get(), uid, gid) != 0) {
        job.ownerError = FailChOwn(dst.path, job.owner, errno, report);
        return false;
    }
    return true;
}

[[gnu::noinline]] int StrictCopy::OpenNew(const CopyPair& pair, NewDirectory& directory, UniqueFd& made) {
    if (const int error = directory.Open(pair.dst); error != 0) {
        if (error == EEXIST) {
            result.isExchanged = true;
        }
        return error;
    }
    made = directory.ReleaseFd();
    if (pair.isTop && fstat(made.Get(), &result.directory) != 0) {
        return errno;
    }
    return DropInheritedAcls(made.Get());
}

[[gnu::noinline]] int StrictCopy::OpenExisting(const CopyPair& pair, UniqueFd& made) {
    if (!pair.isTop) {
        made = OpenDirectory(pair.dst, Link::Refuse);
        return made ? 0 : errno;
    }
    const int error = OpenDestination(pair.dst, job.options.topLink, result);
    return job.options.topLink == Link::Refuse ? error : 0;
}

[[gnu::noinline]] SourceDirectory StrictCopy::OpenSource(const CopyPair& pair) {
    SourceDirectory source{DirectoryStream::Open(pair.src)};
    struct stat st {};
    if (!source.stream || fstat(source.stream.Fd(), &st) != 0) {
        source.error = errno;
        source.isSeen = Lstat(pair.src, st) == 0;
        return source;
    }
    NoteSource(st, job);
    source.group = st.st_gid;
    if (pair.isTop) {
        NoteTop(st, job, result);
    }
    if (IsSame(st, result.directory)) {
        result.isOntoItself = true;
        source.error = EINVAL;
    } else {
        source.error = job.learned.acl.LimitMode(source.stream.Fd(), st, source.mode);
    }
    return source;
}

/// Creates the directory at the destination unless it exists. It does not check first, which saves a call. The mode
/// comes from the open source, because another directory may have taken the source's name.
[[gnu::noinline]] int StrictCopy::MakeDirectory(const CopyPair& pair, const SourceDirectory& source, bool& isNew) {
    int makeError = source.error;
    if (makeError == 0) {
        const mode_t mode = pair.isSheltered ? source.mode : NEW_DIRECTORY_MODE;
        isNew = mkdirat(pair.dst.dirFd, pair.dst.name, mode) == 0;
        if (isNew) {
            return 0;
        }
        makeError = errno;
    }
    struct stat existing {};
    if (const int error = source.isSeen ? Lstat(pair.dst, existing) : makeError; error != 0) {
        return IsNotFound(error) ? makeError : error;
    }
    if (source.stream && source.stream.Is(existing)) {
        return EEXIST;
    }
    if (S_ISLNK(existing.st_mode)) {
        return pair.isTop && job.options.topLink == Link::Follow ? source.error : ENOTDIR;
    }
    if (S_ISREG(existing.st_mode)) {
        return EISDIR;
    }
    return S_ISDIR(existing.st_mode) ? source.error : EINVAL;
}

/// Handles an entry that is neither a file nor a directory: a link is skipped, anything else is an error.
[[gnu::noinline]] int StrictCopy::PassOver(const CopyPair& pair) {
    struct stat from {};
    if (const int error = Lstat(pair.src, from); error != 0) {
        return error;
    }
    NoteSource(from, job);
    struct stat existing {};
    const int lookError = Lstat(pair.dst, existing);
    if (lookError != 0 && !IsNotFound(lookError)) {
        return lookError;
    }
    if (!S_ISLNK(from.st_mode) || (lookError == 0 && IsOther(existing))) {
        return EINVAL;
    }
    if (lookError == 0 && IsSame(from, existing)) {
        return EEXIST;
    }
    ++result.skipped;
    return 0;
}

}  // namespace

int CopyStrictly(const CopyPair& pair, CopyJob& job, const Report& report, CopyResult& result) {
    CopyPair known = pair;
    known.src.type = TypeOf(pair.src);
    const bool isDirectory = known.src.type == DT_DIR;
    if (const int error = isDirectory ? FindOntoItself(pair.src.name, pair.dst.name) : 0; error != 0) {
        result.isOntoItself = true;
        return error;
    }
    const int error = StrictCopy(job, result).CopyTop(known, report);
    // For a file, nothing else causes EEXIST. In a tree, the error may be that of one entry.
    if (error == EEXIST && !isDirectory) {
        result.isOntoItself = true;
    }
    return error;
}

void NoteLeftOut(const Entry& src, const CopyJob& job) {
    struct stat st {};
    if (job.watch != nullptr && Lstat(src, st) == 0) {
        job.watch->Note(st);
    }
}

int OpenDestination(const Entry& dst, Link topLink, CopyResult& result) {
    UniqueFd directory = OpenDirectory(dst, topLink);
    if (!directory || fstat(directory.Get(), &result.directory) != 0) {
        return errno;
    }
    const bool isLink = topLink == Link::Follow && TypeOf(dst) == DT_LNK;
    const bool isForNamesOnly = topLink == Link::Follow && (fcntl(directory.Get(), F_GETFL) & O_PATH) != 0;
    result.isByName = isLink || isForNamesOnly;
    result.destination = std::move(directory);
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
