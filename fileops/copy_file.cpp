#include "copy_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "path_helpers.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr mode_t SET_ID_BITS = S_ISUID | S_ISGID;
constexpr mode_t PERMISSIONS = 0777;
constexpr mode_t PRIVATE_FILE = 0600;

// O_NONBLOCK, because a pipe may have replaced the file.
constexpr int SOURCE_FLAGS = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int TARGET_FLAGS = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

/// A file to copy: either open, or with the error that prevented it. An error at the destination takes precedence over
/// this one.
struct Source {
    UniqueFd fd;
    struct stat status {};
    int error = 0;
    bool isSeen = true;  ///< `status` is set
};

Source OpenSource(const Entry& entry) {
    Source source{UniqueFd(openat(entry.dirFd, entry.name, SOURCE_FLAGS))};
    if (!source.fd) {
        source.error = errno;
        source.isSeen = Lstat(entry, source.status) == 0;
    } else if (fstat(source.fd.Get(), &source.status) != 0) {
        source.error = errno;
    } else if (!S_ISREG(source.status.st_mode)) {
        source.error = EINVAL;
    }
    return source;
}

/// The copy of one file. The functions store the file that they fill in `made`.
class FileCopy {
public:
    FileCopy(const CopyPair& copyPair, CopyJob& copyJob, const Report& fileReport, CopyResult& copyResult)
        : pair(copyPair),
          job(copyJob),
          report(fileReport),
          result(copyResult),
          finish(copyJob.options.finish),
          source(OpenSource(pair.src)) {}

    int Copy(UniqueFd& made);

private:
    int FindMode();
    int Create(const Entry& dst, UniqueFd& made);
    int CopyOnto(int createError, UniqueFd& made);
    int CopyInto(UniqueFd& directory);
    int Overwrite(const Entry& dst, const struct stat& existing, UniqueFd& made);
    int Replace(const Entry& dst, const struct stat& existing, UniqueFd& made);
    [[nodiscard]] bool IsForeign(const struct stat& existing) const;
    [[nodiscard]] bool LetsIn(const struct stat& existing) const;
    int Fill(const Entry& dst, int out);
    static int MakePrivate(int out, int error);
    [[nodiscard]] mode_t FinalMode(int out) const;

    const CopyPair& pair;
    CopyJob& job;
    const Report& report;
    CopyResult& result;
    /// The job's option. If the file is copied *into* a directory, the caller finishes the directory and not the file,
    /// so Nothing becomes Mode.
    Finish finish;
    Source source;
    mode_t mode = 0;                        ///< the bits of the source's mode that the copy may get
    bool hasMode = false;                   ///< the file was created with its final mode
    bool isNew = true;                      ///< the file was created, not overwritten in place
    std::optional<OwnerIds> replacedOwner;  ///< what the new file takes over from the one that it replaces
};

int FileCopy::Copy(UniqueFd& made) {
    if (pair.isTop) {
        NoteTop(source.status, job, result);
        result.isOwned = true;
    }
    if (source.isSeen) {
        NoteSource(source.status, job);
        result.bytes = source.status.st_size;
    }
    const int error = Create(pair.dst, made);
    return made || !source.isSeen ? error : CopyOnto(error, made);
}

int FileCopy::FindMode() {
    return finish == Finish::Nothing ? 0 : job.learned.acl.LimitMode(source.fd.Get(), source.status, mode);
}

/// Creates the file without checking first: usually nothing is there, and the check would cost a call. In a directory
/// that nobody else can reach, the file is created with its final mode, which saves another call.
/// @param made  stays empty if the file was not created
int FileCopy::Create(const Entry& dst, UniqueFd& made) {
    source.error = source.error == 0 ? FindMode() : source.error;
    if (source.error != 0) {
        return source.error;
    }
    hasMode = pair.isSheltered && !replacedOwner && finish != Finish::Nothing &&
              (mode & (~PERMISSIONS | job.learned.Umask())) == 0;
    made = UniqueFd(openat(dst.dirFd, dst.name, TARGET_FLAGS | O_CREAT | O_EXCL, hasMode ? mode : PRIVATE_FILE));
    return made ? Fill(dst, made.Get()) : errno;
}

/// Copies onto an object that exists.
/// @param createError  why the file was not created
int FileCopy::CopyOnto(int createError, UniqueFd& made) {
    struct stat existing {};
    if (const int error = Lstat(pair.dst, existing); error != 0) {
        return IsNotFound(error) ? createError : error;
    }
    if (IsSame(source.status, existing)) {
        return EEXIST;
    }
    if (S_ISREG(existing.st_mode)) {
        return Overwrite(pair.dst, existing, made);
    }
    return S_ISDIR(existing.st_mode) ? CopyInto(made) : EINVAL;
}

/// Copies a file into a directory, under its own name.
int FileCopy::CopyInto(UniqueFd& directory) {
    directory = OpenDirectory(pair.dst, Link::Refuse);
    if (!directory) {
        return errno;
    }
    result.isOwned = false;
    finish = finish == Finish::Nothing ? Finish::Mode : finish;
    const char* slash = std::strrchr(pair.src.name, '/');
    const char* name = slash == nullptr ? pair.src.name : slash + 1;
    const ChildPath joined(pair.dst.path, name);
    const Entry inside{directory.Get(), name, DT_UNKNOWN, pair.dst.path};
    UniqueFd file;
    const int createError = Create(inside, file);
    if (file) {
        return createError;
    }
    struct stat existing {};
    if (const int error = Lstat(inside, existing); error != 0) {
        return IsNotFound(error) ? createError : error;
    }
    if (IsSame(source.status, existing)) {
        return EEXIST;
    }
    return S_ISREG(existing.st_mode) ? Overwrite(inside, existing, file) : EINVAL;
}

/// Whether an existing file belongs neither to the daemon's user nor to the owner that the copy gets.
bool FileCopy::IsForeign(const struct stat& existing) const {
    const uid_t next = job.options.finish == Finish::Mode ? source.status.st_uid : job.owner.uid;
    return existing.st_uid != geteuid() && existing.st_uid != next;
}

/// Whether an existing file could let in users that the copy keeps out: its owner, users who opened it while its mode
/// allowed that, and those who know it by another name. If the copy gets a set-id bit, no process may have had the file
/// open before.
bool FileCopy::LetsIn(const struct stat& existing) const {
    constexpr mode_t access = S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    const mode_t next = finish == Finish::Nothing ? job.mode : mode;
    return IsForeign(existing) || existing.st_nlink > 1 || (existing.st_mode & access & ~next) != 0 ||
           (next & SET_ID_BITS) != 0;
}

/// Overwrites a file in place or replaces it. Until it is filled, it allows only what both its old and its new mode
/// allow. A file that is to be replaced is not opened, because its owner could block that with a lease.
int FileCopy::Overwrite(const Entry& dst, const struct stat& existing, UniqueFd& made) {
    if (source.error != 0) {
        return source.error;
    }
    if (LetsIn(existing)) {
        return Replace(dst, existing, made);
    }
    made = UniqueFd(openat(dst.dirFd, dst.name, TARGET_FLAGS));
    struct stat old {};
    if (!made || fstat(made.Get(), &old) != 0) {
        return errno;
    }
    // Another object may have taken the name since the first look.
    if (!S_ISREG(old.st_mode) || IsSame(source.status, old)) {
        return S_ISREG(old.st_mode) ? EEXIST : EINVAL;
    }
    if (LetsIn(old) || HasAccessAcl(made.Get())) {
        return Replace(dst, old, made);
    }
    const mode_t next = finish == Finish::Nothing ? job.mode : mode;
    const mode_t common = old.st_mode & next & PERMISSIONS;
    isNew = hasMode = false;  // this file existed before and has its old mode
    if (ftruncate(made.Get(), 0) != 0 || fchmod(made.Get(), common) != 0) {
        return errno;
    }
    return Fill(dst, made.Get());
}

/// Replaces a file by a new one, which keeps the owner and group that it would have if it were overwritten in place.
int FileCopy::Replace(const Entry& dst, const struct stat& existing, UniqueFd& made) {
    if (unlinkat(dst.dirFd, dst.name, 0) != 0) {
        return errno;
    }
    if (finish == Finish::Mode && !IsForeign(existing)) {
        replacedOwner = {existing.st_uid, existing.st_gid};
    }
    const int error = Create(dst, made = UniqueFd());
    return error == EEXIST ? EBUSY : error;  // the caller takes EEXIST for a copy onto itself
}

int FileCopy::Fill(const Entry& dst, int out) {
    if (const int error = job.learned.data.Copy(source.fd.Get(), out, source.status); error != 0) {
        return hasMode ? MakePrivate(out, error) : error;
    }
    if (finish == Finish::Nothing) {
        return DropAccessAcl(out);
    }
    if (replacedOwner && fchown(out, replacedOwner->uid, replacedOwner->gid) != 0) {
        return errno;
    }
    if (finish == Finish::OwnerAndMode && fchown(out, job.owner.uid, job.owner.gid) != 0) {
        job.ownerError = FailChOwn(dst.path, job.owner, errno, report);
        return hasMode ? MakePrivate(out, 0) : 0;
    }
    if (hasMode) {
        return 0;
    }
    if (const int error = pair.isSheltered ? 0 : DropAccessAcl(out); error != 0) {
        return error;
    }
    return fchmod(out, FinalMode(out)) == 0 ? 0 : errno;
}

/// Makes a file private again if it did not get its data or its owner. @return `error`
int FileCopy::MakePrivate(int out, int error) {
    return fchmod(out, PRIVATE_FILE) == 0 || error != 0 ? error : errno;
}

mode_t FileCopy::FinalMode(int out) const {
    struct stat copy {};
    const bool keepsSetId = (mode & SET_ID_BITS) != 0 && job.options.finish == Finish::Mode && fstat(out, &copy) == 0 &&
                            copy.st_uid == source.status.st_uid && copy.st_gid == source.status.st_gid;
    const mode_t given = keepsSetId ? mode : mode & ~SET_ID_BITS;
    return isNew && finish == Finish::Mode ? LimitToGroup(given, out, source.status.st_gid) : given;
}

}  // namespace

[[gnu::noinline]] int CopyFile(const CopyPair& pair, CopyJob& job, const Report& report, CopyResult& result,
                               UniqueFd& made) {
    return FileCopy(pair, job, report, result).Copy(made);
}

}  // namespace TAVO::FileMigrateOrvane
