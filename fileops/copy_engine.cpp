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
constexpr int WAY_UP_FLAGS = O_PATH | O_DIRECTORY | O_CLOEXEC;

bool Look(const Entry& entry, struct stat& st) {
    return fstatat(entry.dirFd, entry.name, &st, AT_SYMLINK_NOFOLLOW) == 0;
}

[[gnu::noinline]] unsigned char TypeOf(const Entry& entry) {
    struct stat st {};
    return static_cast<unsigned char>(Look(entry, st) ? IFTODT(st.st_mode) : mode_t{DT_UNKNOWN});
}

/// Neither a file nor a directory nor a link.
bool IsOther(const struct stat& st) {
    return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode) && !S_ISLNK(st.st_mode);
}

bool IsNotFound(int error) {
    return error == ENOENT || error == ENOTDIR;
}

/// A file to be copied: open, or with the error for which it is not. That one counts after those that a look at the
/// destination shows.
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
        source.isSeen = Look(entry, source.status);
    } else if (fstat(source.fd.Get(), &source.status) != 0) {
        source.error = errno;
    } else if (!S_ISREG(source.status.st_mode)) {
        source.error = EINVAL;
    }
    return source;
}

/// The copy of one file or tree. Functions that copy return 0 or an error number, and hand out in `made` what stands
/// at the destination then.
class StrictCopy {
public:
    explicit StrictCopy(CopyTask& copyTask) : task(copyTask), isModeToChange(copyTask.isModeToChange) {}

    /// @param isRequest  these are the request's own paths
    int CopyEntry(const Entry& src, const Entry& dst, bool isRequest, UniqueFd& made);

    /// Whether the walk came upon the destination, which then lies inside the source after all.
    [[nodiscard]] bool HasMetDestination() const { return hasMetDestination; }

private:
    int CopyFile(const Entry& src, const Entry& dst, UniqueFd& made);
    int CopyOnto(const Source& source, const char* srcName, const Entry& dst, int createError, UniqueFd& made);
    int CopyInto(const Source& source, const char* srcName, const Entry& dst, UniqueFd& made);
    int Create(const Source& source, const Entry& dst, UniqueFd& made);
    int Overwrite(const Source& source, const Entry& dst, UniqueFd& made);
    int Fill(const Source& source, int out);

    int CopyDirectory(const Entry& src, const Entry& dst, bool isRequest, UniqueFd& made);
    int MakeDirectory(const Entry& src, const Entry& dst, bool isRequest);
    int PassOver(const Entry& src, const Entry& dst);

    CopyTask& task;
    bool isModeToChange;  ///< as the task has it, while what is filled stands at the destination
    bool hasMetDestination = false;
};

int StrictCopy::CopyEntry(const Entry& src, const Entry& dst, bool isRequest, UniqueFd& made) {
    switch (src.type == DT_UNKNOWN ? TypeOf(src) : src.type) {
        case DT_REG:
            return CopyFile(src, dst, made);
        case DT_DIR:
            return CopyDirectory(src, dst, isRequest, made);
        default:
            return PassOver(src, dst);
    }
}

/// To create the file without a look first saves the look: mostly nothing is there.
[[gnu::noinline]] int StrictCopy::CopyFile(const Entry& src, const Entry& dst, UniqueFd& made) {
    const Source source = OpenSource(src);
    if (task.source.st_ino == 0) {
        task.source = source.status;
    }
    const int error = Create(source, dst, made);
    return made || !source.isSeen ? error : CopyOnto(source, src.name, dst, error, made);
}

/// @param made  stays empty where the file was not created
int StrictCopy::Create(const Source& source, const Entry& dst, UniqueFd& made) {
    if (source.error != 0) {
        return source.error;
    }
    made = UniqueFd(openat(dst.dirFd, dst.name, TARGET_FLAGS | O_EXCL, PRIVATE_FILE));
    return made ? Fill(source, made.Get()) : errno;
}

/// Copies onto what stands there already.
/// @param createError  for which the file was not created
int StrictCopy::CopyOnto(const Source& source, const char* srcName, const Entry& dst, int createError, UniqueFd& made) {
    struct stat existing {};
    if (!Look(dst, existing)) {
        return IsNotFound(errno) ? createError : errno;
    }
    if (IsSame(source.status, existing)) {
        return EEXIST;
    }
    if (S_ISREG(existing.st_mode)) {
        return Overwrite(source, dst, made);
    }
    return S_ISDIR(existing.st_mode) ? CopyInto(source, srcName, dst, made) : EINVAL;
}

/// Copies a file into a directory, under its own name.
int StrictCopy::CopyInto(const Source& source, const char* srcName, const Entry& dst, UniqueFd& made) {
    made = OpenDirectory(dst, O_NOFOLLOW);
    if (!made) {
        return errno;
    }
    isModeToChange = false;  // the caller's mode is for what stands at the destination, the directory
    const char* slash = std::strrchr(srcName, '/');
    const Entry inside{made.Get(), slash == nullptr ? srcName : slash + 1, DT_UNKNOWN, dst.path};
    UniqueFd file;
    const int error = Create(source, inside, file);
    if (file) {
        return error;
    }
    struct stat existing {};
    if (!Look(inside, existing)) {
        return IsNotFound(errno) ? error : errno;
    }
    if (IsSame(source.status, existing)) {
        return EEXIST;
    }
    return S_ISREG(existing.st_mode) ? Overwrite(source, inside, file) : EINVAL;
}

/// Overwrites in place. Until it is filled the file is as open as both its old and its new mode allow.
int StrictCopy::Overwrite(const Source& source, const Entry& dst, UniqueFd& made) {
    if (source.error != 0) {
        return source.error;
    }
    made = UniqueFd(openat(dst.dirFd, dst.name, TARGET_FLAGS, PRIVATE_FILE));
    struct stat old {};
    if (!made || fstat(made.Get(), &old) != 0) {
        return errno;
    }
    // Looked at once more: by now the name may stand for another object.
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
    const int error = task.data.Copy(source.fd.Get(), out, source.status);
    if (error != 0 || isModeToChange) {
        return error;
    }
    mode_t mode = source.status.st_mode & MODE_BITS;
    if ((mode & SET_ID_BITS) != 0) {
        struct stat copy {};
        const bool isOwnersAlike = !task.isOwnerToChange && fstat(out, &copy) == 0 &&
                                   copy.st_uid == source.status.st_uid && copy.st_gid == source.status.st_gid;
        mode &= isOwnersAlike ? MODE_BITS : ~SET_ID_BITS;
    }
    return fchmod(out, mode) == 0 ? 0 : errno;
}

int StrictCopy::CopyDirectory(const Entry& src, const Entry& dst, bool isRequest, UniqueFd& made) {
    if (const int error = MakeDirectory(src, dst, isRequest); error != 0) {
        return error;
    }
    DirectoryStream from = DirectoryStream::Open(src);
    if (!from || (isRequest && fstat(from.Fd(), &task.source) != 0)) {
        return errno;
    }
    made = isRequest ? OpenDestination(dst, task) : OpenDirectory(dst, O_NOFOLLOW);
    if (!made && (!isRequest || task.isBelowRequest)) {
        return errno;
    }
    while (const dirent* child = from.Next()) {
        const ChildPath joinedSrc(src.path, child->d_name);
        const ChildPath joinedDst(dst.path, child->d_name);
        UniqueFd childMade;
        const Entry target = ChildOf(made, child->d_name, dst.path);
        if (const int error = CopyEntry(from.Child(*child, src.path), target, /*isRequest=*/false, childMade);
            error != 0) {
            return error;
        }
        // Network file systems tell here that the disk is full.
        if (childMade.Close() != 0) {
            return errno;
        }
    }
    return from.ReadError();
}

/// Makes the directory `dst` with the mode of `src`, unless there is one. To make it without a look first saves the
/// look.
[[gnu::noinline]] int StrictCopy::MakeDirectory(const Entry& src, const Entry& dst, bool isRequest) {
    struct stat from {};
    if (!Look(src, from)) {
        return errno;
    }
    if (IsSame(from, task.directory)) {
        hasMetDestination = true;
        return EINVAL;
    }
    if (mkdirat(dst.dirFd, dst.name, from.st_mode & MODE_BITS) == 0) {
        return 0;
    }
    const int makeError = errno;
    struct stat existing {};
    if (!Look(dst, existing)) {
        return IsNotFound(errno) ? makeError : errno;
    }
    if (IsSame(from, existing)) {
        return EEXIST;
    }
    if (S_ISLNK(existing.st_mode)) {
        return isRequest && !task.isBelowRequest ? 0 : ENOTDIR;
    }
    if (S_ISREG(existing.st_mode)) {
        return EISDIR;
    }
    return S_ISDIR(existing.st_mode) ? 0 : EINVAL;
}

/// What is neither a file nor a directory: a link is skipped, all else is an error.
[[gnu::noinline]] int StrictCopy::PassOver(const Entry& src, const Entry& dst) {
    struct stat from {};
    if (!Look(src, from)) {
        return errno;
    }
    struct stat existing {};
    const bool isThere = Look(dst, existing);
    if (!isThere && !IsNotFound(errno)) {
        return errno;
    }
    if (!S_ISLNK(from.st_mode) || (isThere && IsOther(existing))) {
        return EINVAL;
    }
    if (isThere && IsSame(from, existing)) {
        return EEXIST;
    }
    ++task.skipped;
    return 0;
}

}  // namespace

CopyOutcome CopyStrictly(const Entry& src, const Entry& dst, CopyTask& task, int& err) {
    const bool isRequest = src.type == DT_UNKNOWN;
    const Entry known{src.dirFd, src.name, isRequest ? TypeOf(src) : src.type, src.path};
    int error = known.type == DT_DIR ? FindOntoItself(src.name, dst.name) : 0;
    bool isOntoItself = error != 0;
    if (!isOntoItself) {
        task.source = {};
        task.destination = UniqueFd();
        StrictCopy copy(task);
        error = copy.CopyEntry(known, dst, isRequest, task.destination);
        // For a file there is no other reason for EEXIST. In a tree the error may be that of one entry.
        isOntoItself = copy.HasMetDestination() || (error == EEXIST && known.type != DT_DIR);
    }
    if (error == 0) {
        return CopyOutcome::Done;
    }
    err = error;
    return isOntoItself ? CopyOutcome::OntoItself : CopyOutcome::Failed;
}

int FindOntoItself(const std::string& src, const std::string& dst) {
    struct stat source {};
    if (lstat(src.c_str(), &source) != 0) {
        return 0;
    }
    std::string path = dst;
    UniqueFd directory(open(path.c_str(), WAY_UP_FLAGS));
    // A link that leads nowhere, or round in a circle, lies where its name does.
    while (!directory && (IsNotFound(errno) || errno == ELOOP) && DirName(path) != path) {
        path = DirName(path);
        directory = UniqueFd(open(path.c_str(), WAY_UP_FLAGS));
    }
    struct stat here {};
    struct stat below {};
    while (directory && fstat(directory.Get(), &here) == 0 && !IsSame(here, below)) {
        if (IsSame(here, source)) {
            return below.st_ino == 0 && path == dst ? EEXIST : EINVAL;
        }
        below = here;
        directory = UniqueFd(openat(directory.Get(), "..", WAY_UP_FLAGS));
    }
    return 0;
}

UniqueFd OpenDestination(const Entry& dst, CopyTask& task) {
    UniqueFd directory = OpenDirectory(dst, task.isBelowRequest ? O_NOFOLLOW : 0);
    if (!directory || fstat(directory.Get(), &task.directory) != 0) {
        return UniqueFd();
    }
    task.isByName = !task.isBelowRequest && (TypeOf(dst) == DT_LNK || (fcntl(directory.Get(), F_GETFL) & O_PATH) != 0);
    return directory;
}

}  // namespace TAVO::FileMigrateOrvane
