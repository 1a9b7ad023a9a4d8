#include "copy_engine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "path_helpers.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr mode_t MODE_BITS = 07777;
constexpr mode_t SET_ID_BITS = S_ISUID | S_ISGID;
constexpr mode_t PERMISSIONS = 0777;
constexpr mode_t PRIVATE_FILE = 0600;

// O_NONBLOCK: what was a file may have become a pipe.
constexpr int SOURCE_FLAGS = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int TARGET_FLAGS = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int ANCESTOR_FLAGS = O_PATH | O_DIRECTORY | O_CLOEXEC;

/// Neither a file nor a directory nor a link.
bool IsOther(const struct stat& st) {
    return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode) && !S_ISLNK(st.st_mode);
}

bool IsNotFound(int error) {
    return error == ENOENT || error == ENOTDIR;
}

/// A file to be copied: open, or with the error that prevented it. What a look at the destination shows is reported
/// before that error.
struct Source {
    UniqueFd fd;
    struct stat status {};
    int error = 0;
    bool isSeen = true;  ///< it has a status
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

/// The copy of one file or tree. Functions that copy hand out the object at the destination in `made`; for the top that
/// is the result's `destination`.
class StrictCopy {
public:
    StrictCopy(CopyJob& copyJob, CopyResult& copyResult)
        : job(copyJob), result(copyResult), isModeToChange(copyJob.options.isModeToChange) {}

    int CopyEntry(const CopyPair& pair, UniqueFd& made);

private:
    int CopyFile(const CopyPair& pair, UniqueFd& made);
    int CopyOnto(const Source& source, const CopyPair& pair, int createError, UniqueFd& made);
    int CopyInto(const Source& source, const CopyPair& pair, UniqueFd& made);
    int Create(const Source& source, const Entry& dst, UniqueFd& made);
    int Overwrite(const Source& source, const Entry& dst, UniqueFd& made);
    int Fill(const Source& source, int out);

    int CopyDirectory(const CopyPair& pair, UniqueFd& made);
    int CopyContents(DirectoryStream& from, const CopyPair& pair, const UniqueFd& into);
    int MakeDirectory(const CopyPair& pair);
    int OpenMade(const CopyPair& pair, UniqueFd& made);
    int PassOver(const CopyPair& pair);

    CopyJob& job;
    CopyResult& result;
    /// The option. Cleared when a file is copied *into* a directory, because the caller's mode is meant for the
    /// directory.
    bool isModeToChange;
};

int StrictCopy::CopyEntry(const CopyPair& pair, UniqueFd& made) {
    switch (TypeOf(pair.src)) {
        case DT_REG:
            return CopyFile(pair, made);
        case DT_DIR:
            return CopyDirectory(pair, made);
        default:
            return PassOver(pair);
    }
}

/// Creates the file without a look first: mostly nothing is there, and that saves the look.
[[gnu::noinline]] int StrictCopy::CopyFile(const CopyPair& pair, UniqueFd& made) {
    const Source source = OpenSource(pair.src);
    if (result.source.st_ino == 0) {
        result.source = source.status;
    }
    const int error = Create(source, pair.dst, made);
    return made || !source.isSeen ? error : CopyOnto(source, pair, error, made);
}

/// @param made  stays empty if the file was not created
int StrictCopy::Create(const Source& source, const Entry& dst, UniqueFd& made) {
    if (source.error != 0) {
        return source.error;
    }
    made = UniqueFd(openat(dst.dirFd, dst.name, TARGET_FLAGS | O_EXCL, PRIVATE_FILE));
    return made ? Fill(source, made.Get()) : errno;
}

/// Copies onto an object that exists.
/// @param createError  why the file was not created
int StrictCopy::CopyOnto(const Source& source, const CopyPair& pair, int createError, UniqueFd& made) {
    struct stat existing {};
    if (const int error = Lstat(pair.dst, existing); error != 0) {
        return IsNotFound(error) ? createError : error;
    }
    if (IsSame(source.status, existing)) {
        return EEXIST;
    }
    if (S_ISREG(existing.st_mode)) {
        return Overwrite(source, pair.dst, made);
    }
    return S_ISDIR(existing.st_mode) ? CopyInto(source, pair, made) : EINVAL;
}

/// Copies a file into a directory, under its own name.
int StrictCopy::CopyInto(const Source& source, const CopyPair& pair, UniqueFd& made) {
    made = OpenDirectory(pair.dst, Link::Refuse);
    if (!made) {
        return errno;
    }
    isModeToChange = false;
    const char* slash = std::strrchr(pair.src.name, '/');
    const Entry inside{made.Get(), slash == nullptr ? pair.src.name : slash + 1, DT_UNKNOWN, pair.dst.path};
    UniqueFd file;
    const int createError = Create(source, inside, file);
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
    return S_ISREG(existing.st_mode) ? Overwrite(source, inside, file) : EINVAL;
}

/// Overwrites in place. Until it is filled, the file allows only what both its old and its new mode allow.
int StrictCopy::Overwrite(const Source& source, const Entry& dst, UniqueFd& made) {
    if (source.error != 0) {
        return source.error;
    }
    made = UniqueFd(openat(dst.dirFd, dst.name, TARGET_FLAGS, PRIVATE_FILE));
    struct stat old {};
    if (!made || fstat(made.Get(), &old) != 0) {
        return errno;
    }
    // The name may belong to another object since the first look.
    if (!S_ISREG(old.st_mode) || IsSame(source.status, old)) {
        return S_ISREG(old.st_mode) ? EEXIST : EINVAL;
    }
    const mode_t common = old.st_mode & source.status.st_mode & PERMISSIONS;
    if (ftruncate(made.Get(), 0) != 0 || fchmod(made.Get(), common) != 0) {
        return errno;
    }
    return Fill(source, made.Get());
}

int StrictCopy::Fill(const Source& source, int out) {
    const int error = job.data.Copy(source.fd.Get(), out, source.status);
    if (error != 0 || isModeToChange) {
        return error;
    }
    mode_t mode = source.status.st_mode & MODE_BITS;
    if ((mode & SET_ID_BITS) != 0) {
        struct stat copy {};
        const bool hasSameOwner = !job.options.isOwnerToChange && fstat(out, &copy) == 0 &&
                                  copy.st_uid == source.status.st_uid && copy.st_gid == source.status.st_gid;
        mode &= hasSameOwner ? MODE_BITS : ~SET_ID_BITS;
    }
    return fchmod(out, mode) == 0 ? 0 : errno;
}

int StrictCopy::CopyDirectory(const CopyPair& pair, UniqueFd& made) {
    if (const int error = MakeDirectory(pair); error != 0) {
        return error;
    }
    DirectoryStream from = DirectoryStream::Open(pair.src);
    if (!from || (pair.isTop && fstat(from.Fd(), &result.source) != 0)) {
        return errno;
    }
    if (const int error = OpenMade(pair, made); error != 0) {
        return error;
    }
    return CopyContents(from, pair, made);
}

int StrictCopy::CopyContents(DirectoryStream& from, const CopyPair& pair, const UniqueFd& into) {
    while (const dirent* child = from.Next()) {
        const ChildPath joinedSrc(pair.src.path, child->d_name);
        const ChildPath joinedDst(pair.dst.path, child->d_name);
        UniqueFd childMade;
        const int error =
            CopyEntry({from.Child(*child, pair.src.path), ChildOf(into, child->d_name, pair.dst.path), /*isTop=*/false},
                      childMade);
        if (error != 0) {
            return error;
        }
        // Network file systems report a full disk here.
        if (childMade.Close() != 0) {
            return errno;
        }
    }
    return from.ReadError();
}

/// Opens the directory at the destination.
int StrictCopy::OpenMade(const CopyPair& pair, UniqueFd& made) {
    if (!pair.isTop) {
        made = OpenDirectory(pair.dst, Link::Refuse);
        return made ? 0 : errno;
    }
    const int error = OpenDestination(pair.dst, job.options.topLink, result);
    return job.options.topLink == Link::Refuse ? error : 0;
}

/// Makes the directory at the destination with the mode of the source, unless there is one. Makes it without a look
/// first, which saves the look.
[[gnu::noinline]] int StrictCopy::MakeDirectory(const CopyPair& pair) {
    struct stat from {};
    if (const int error = Lstat(pair.src, from); error != 0) {
        return error;
    }
    if (IsSame(from, result.directory)) {
        result.isOntoItself = true;
        return EINVAL;
    }
    if (mkdirat(pair.dst.dirFd, pair.dst.name, from.st_mode & MODE_BITS) == 0) {
        return 0;
    }
    const int makeError = errno;
    struct stat existing {};
    if (const int error = Lstat(pair.dst, existing); error != 0) {
        return IsNotFound(error) ? makeError : error;
    }
    if (IsSame(from, existing)) {
        return EEXIST;
    }
    if (S_ISLNK(existing.st_mode)) {
        return pair.isTop && job.options.topLink == Link::Follow ? 0 : ENOTDIR;
    }
    if (S_ISREG(existing.st_mode)) {
        return EISDIR;
    }
    return S_ISDIR(existing.st_mode) ? 0 : EINVAL;
}

/// For what is neither a file nor a directory: a link is skipped, anything else is an error.
[[gnu::noinline]] int StrictCopy::PassOver(const CopyPair& pair) {
    struct stat from {};
    if (const int error = Lstat(pair.src, from); error != 0) {
        return error;
    }
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

int CopyStrictly(const CopyPair& pair, CopyJob& job, CopyResult& result) {
    const CopyPair known{{pair.src.dirFd, pair.src.name, TypeOf(pair.src), pair.src.path}, pair.dst, pair.isTop};
    const bool isDirectory = known.src.type == DT_DIR;
    if (const int error = isDirectory ? FindOntoItself(pair.src.name, pair.dst.name) : 0; error != 0) {
        result.isOntoItself = true;
        return error;
    }
    const int error = StrictCopy(job, result).CopyEntry(known, result.destination);
    // For a file, nothing else causes EEXIST. In a tree, the error may be that of one entry.
    result.isOntoItself = result.isOntoItself || (error == EEXIST && !isDirectory);
    return error;
}

int FindOntoItself(const std::string& src, const std::string& dst) {
    struct stat source {};
    if (lstat(src.c_str(), &source) != 0) {
        return 0;
    }
    std::string path = dst;
    UniqueFd directory(open(path.c_str(), ANCESTOR_FLAGS));
    // A link without a target, or one in a circle, is where its name is.
    while (!directory && (IsNotFound(errno) || errno == ELOOP) && DirName(path) != path) {
        path = DirName(path);
        directory = UniqueFd(open(path.c_str(), ANCESTOR_FLAGS));
    }
    struct stat here {};
    struct stat below {};
    while (directory && fstat(directory.Get(), &here) == 0 && !IsSame(here, below)) {
        if (IsSame(here, source)) {
            return below.st_ino == 0 && path == dst ? EEXIST : EINVAL;
        }
        below = here;
        directory = UniqueFd(openat(directory.Get(), "..", ANCESTOR_FLAGS));
    }
    return 0;
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
