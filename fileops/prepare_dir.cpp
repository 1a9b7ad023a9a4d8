#include "prepare_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <utility>

#include "error_record.h"
#include "log.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "record_file.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr unsigned int CREATE_MODE = 0700;

/// DoMkDir that tells whether the directory is its own.
int MakeOne(const Entry& directory, bool& isNew, int& err, int recordKind) {
    isNew = mkdirat(directory.dirFd, directory.name, CREATE_MODE) == 0;
    return isNew || errno == EEXIST ? 0 : MkDirFailed(directory.path, errno, err, recordKind);
}

/// Whether something stands where mkdir() found the name taken. If not, errno tells why no mode can be given to it: a
/// link without a target has none.
bool IsTaken(const Entry& directory) {
    struct stat st {};
    if (fstatat(directory.dirFd, directory.name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return false;
    }
    errno = EOPNOTSUPP;
    return !S_ISLNK(st.st_mode);
}

/// The time as inodes get it, that of the last tick, in whole seconds: no file system keeps the birth less exactly.
std::int64_t InodeClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec;
}

/// Whether an open directory can be the one that this process has created since `start`. Who owns the parent can put
/// any directory there that the parent holds, also one of root's that is closed to him: that one is older. Its contents
/// tell only where a file system keeps no birth: a second worker may already have put something into the new one.
bool IsOwnSince(int fd, std::int64_t start) {
    struct statx st {};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_UID | STATX_BTIME, &st) != 0 || st.stx_uid != geteuid()) {
        return false;
    }
    if ((st.stx_mask & STATX_BTIME) != 0) {
        return st.stx_btime.tv_sec >= start;
    }
    std::string unused;
    DirectoryStream stream = DirectoryStream::Open({fd, ".", DT_DIR, unused});
    return stream && stream.Next() == nullptr;
}

/// Opens the directory that mkdir() has created since `start`; none, with EEXIST, where its name has been given to
/// another object.
UniqueFd OpenCreated(const Entry& directory, std::int64_t start) {
    const std::string_view given = directory.name;
    const std::string name(given.substr(0, given.find_last_not_of('/') + 1));  // "name/" would follow a link
    UniqueFd fd(openat(directory.dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (fd && !IsOwnSince(fd.Get(), start)) {
        fd = UniqueFd();
        errno = EEXIST;
    }
    return fd;
}

/// DoChMod where there is no directory to give a mode to; errno tells why.
int ModeFailed(const std::string& path, unsigned int mode, int& err, int recordKind) {
    err = errno;
    LogError({"lchmod %{public}s %{public}o failed, errno=%{public}d", "DoChMod"}, path, mode, err);
    RecordChmodErr(path, mode, err, recordKind);
    return -1;
}

/// A level that was handled.
struct Level {
    bool isNew = false;
    UniqueFd fd = UniqueFd();  ///< the directory that was created, where its maker has opened it
};

/// DoPrepareDir that hands out the directory it created.
int PrepareOne(const Entry& directory, const PermPara& perm, Level& level, int& err, int recordKind) {
    if (IsPathExist(directory.dirFd, directory.name, directory.path, err, recordKind) == 1) {
        return 0;
    }
    const std::int64_t start = InodeClock();
    if (MakeOne(directory, level.isNew, err, recordKind) == 0) {
        if (level.isNew) {
            level.fd = OpenCreated(directory, start);
        } else if (IsTaken(directory)) {
            return 0;  // since the first look: left as it is, like one that had been there before
        }
        const int given = level.fd ? SetModeAndOwner(level.fd, directory.path, perm, err, recordKind)
                                   : ModeFailed(directory.path, perm.mode, err, recordKind);
        if (given == 0) {
            LogInfo({"DoPrepareDir %{public}s suc: %{public}u, %{public}u, %{public}o", "DoPrepareDir"}, directory.path,
                    perm.uid, perm.gid, perm.mode);
            return 0;
        }
    }
    LogError({"DoPrepareDir %{public}s failed: %{public}u, %{public}u, %{public}o", "DoPrepareDir"}, directory.path,
             perm.uid, perm.gid, perm.mode);
    return -1;
}

/// Calls `make` with each ancestor written in the path, the outermost first, and then with the path itself; stops at
/// the first failure. Once a level is new, the next is a name in the directory opened for it. Where something that is
/// no directory has taken its place, making the next one fails (ENOTDIR).
template <class Make>
int ForEachLevel(const std::string& path, int& err, int recordKind, Make make) {
    UniqueFd above;
    std::size_t slash = 0;
    do {
        const std::size_t nameAt = slash + 1;
        slash = path.find('/', nameAt);
        std::string text = path.substr(0, slash);
        if (above && text.length() == nameAt) {
            continue;  // two slashes, or one at the end: the same directory
        }
        const Entry entry = above ? Entry{above.Get(), &text[nameAt], DT_UNKNOWN, text}
                                  : Entry{AT_FDCWD, text.c_str(), DT_UNKNOWN, text};
        Level level;
        if (make(entry, level) != 0) {
            return -1;
        }
        if (slash != std::string::npos && (above || level.isNew) && !level.fd) {
            level.fd = UniqueFd(openat(entry.dirFd, entry.name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
            if (!level.fd) {
                return MkDirFailed(text, errno, err, recordKind);
            }
        }
        if (level.fd) {
            above = std::move(level.fd);
        }
    } while (slash != std::string::npos);
    return 0;
}

}  // namespace

int MkDirFailed(const std::string& path, int error, int& err, int recordKind) {
    err = error;
    LogError({"mkdir %{public}s %{public}o failed, errno=%{public}d", "DoMkDir"}, path, CREATE_MODE, err);
    RecordMkdirErr(path, CREATE_MODE, err, recordKind);
    return -1;
}

int DoMkDir(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    return DoMkDir(TopEntry(path, text), err, recordKind);
}

int DoMkDir(const Entry& directory, int& err, int recordKind) {
    bool isNew = false;
    return MakeOne(directory, isNew, err, recordKind);
}

int MkDir(const std::string& path, int recurseOpt, int& err, int recordKind) {
    if (IsPathExist(path, err, RECORD_KIND_NONE) == 1) {
        LogInfo("dir %{public}s already exists", path);
        return 0;
    }
    if (recurseOpt == RECURSE_ALL) {
        const auto make = [&](const Entry& entry, Level& level) {
            return MakeOne(entry, level.isNew, err, recordKind);
        };
        if (ForEachLevel(path, err, recordKind, make) != 0) {
            return -1;
        }
        LogInfo("DoMkDirRecurse %{public}s suc", path);
        return 0;
    }
    if (recurseOpt == RECURSE_NONE) {
        if (DoMkDir(path, err, recordKind) != 0) {
            return -1;
        }
        LogInfo("DoMkDir %{public}s suc", path);
        return 0;
    }
    LogError("Unexpected recurseOpt:%{public}d, not mkdir %{public}s", recurseOpt, path);
    err = EINVAL;
    RecordRecurseOptErr("INVALID_RECURSEOPT_MKDIR", path, recurseOpt, err, recordKind);
    return -1;
}

int PrepareDir(const PathPara& para, int& err, int recordKind) {
    if (IsPathExist(para.path, err, recordKind) == 1) {
        LogInfo("dir %{public}s already exists", para.path);
        return 0;
    }
    if (para.recurseOpt == RECURSE_ALL) {
        const PermPara perm{para.uid, para.gid, para.mode};
        return ForEachLevel(para.path, err, recordKind, [&](const Entry& entry, Level& level) {
            return PrepareOne(entry, perm, level, err, recordKind);
        });
    }
    if (para.recurseOpt == RECURSE_NONE) {
        return DoPrepareDir(para, err, recordKind);
    }
    LogError("Unexpected recurseOpt:%{public}d, not prepare %{public}s", para.recurseOpt, para.path);
    err = EINVAL;
    RecordRecurseOptErr("INVALID_RECURSEOPT_PREPAREDIR", para.path, para.recurseOpt, err, recordKind);
    return -1;
}

int DoPrepareDir(const PathPara& para, int& err, int recordKind) {
    std::string text = para.path;
    return DoPrepareDir(TopEntry(para.path, text), {para.uid, para.gid, para.mode}, err, recordKind);
}

int DoPrepareDir(const Entry& directory, const PermPara& perm, int& err, int recordKind) {
    Level level;
    return PrepareOne(directory, perm, level, err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
