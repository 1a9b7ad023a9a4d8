#include "prepare_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <utility>

#include "directory_stream.h"
#include "log.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "record_file.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// One level of a path that is being created.
struct Level {
    bool isNew = false;        ///< this request has created it
    UniqueFd fd = UniqueFd();  ///< the directory that was created, if it has been opened
};

/// DoMkDir that says whether the directory is new.
int MakeOne(const Entry& directory, Level& level, const Report& report) {
    level.isNew = mkdirat(directory.dirFd, directory.name, CREATE_MODE) == 0;
    return level.isNew || errno == EEXIST ? 0 : FailMkDir(directory.path, CREATE_MODE, errno, report);
}

/// The time as inodes get it, that of the last tick, in whole seconds: no file system keeps the birth less exactly.
std::int64_t InodeClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec;
}

/// Whether an open directory can be the one that this process has created since `start`. The owner of the parent can
/// put any directory in its place that the parent holds, also one of root's that he cannot read; that one is older.
/// Emptiness decides only on file systems that keep no birth: a second worker may have put something into a new one.
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

/// Opens the directory that mkdir() has created since `start`. @return 0, or EEXIST if its name belongs to another
/// object, or why it cannot be opened
int OpenCreated(const Entry& directory, std::int64_t start, UniqueFd& fd) {
    const std::string_view given = directory.name;
    const std::string name(given.substr(0, given.find_last_not_of('/') + 1));  // "name/" would follow a link
    fd = UniqueFd(openat(directory.dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) {
        return errno;
    }
    return IsOwnSince(fd.Get(), start) ? 0 : EEXIST;
}

/// Gives a new directory its mode and owner.
int FinishNew(const Entry& directory, const PermPara& perm, std::int64_t start, Level& level, const Report& report) {
    const int error = OpenCreated(directory, start, level.fd);
    return error == 0 ? SetModeAndOwner(level.fd, directory.path, perm, report)
                      : FailChMod(directory.path, perm.mode, error, report);
}

/// Something had the name when mkdir() was called, though nothing did at the look before. It is left as it is, like one
/// that was there at that look. A link without a target never shows in that look; it has no mode that could be given.
int LeaveExisting(const Entry& directory, const PermPara& perm, const Report& report) {
    struct stat st {};
    const int error = Lstat(directory, st);
    if (error == 0 && !S_ISLNK(st.st_mode)) {
        return 0;
    }
    return FailChMod(directory.path, perm.mode, error != 0 ? error : EOPNOTSUPP, report);
}

/// DoPrepareDir that hands out the directory it created.
int PrepareOne(const Entry& directory, const PermPara& perm, Level& level, const Report& report) {
    if (IsPathExist(directory, report) == 1) {
        return 0;
    }
    const std::int64_t start = InodeClock();
    int error = MakeOne(directory, level, report);
    if (error == 0) {
        error = level.isNew ? FinishNew(directory, perm, start, level, report) : LeaveExisting(directory, perm, report);
    }
    if (error != 0) {
        LogError({"DoPrepareDir %{public}s failed: %{public}u, %{public}u, %{public}o", "DoPrepareDir"}, directory.path,
                 perm.uid, perm.gid, perm.mode);
    } else if (level.isNew) {
        LogInfo({"DoPrepareDir %{public}s suc: %{public}u, %{public}u, %{public}o", "DoPrepareDir"}, directory.path,
                perm.uid, perm.gid, perm.mode);
    }
    return error;
}

/// Calls `make` with each ancestor written in the path, the outermost first, and then with the path itself; stops at
/// the first failure. Once a level is new, the next is a name in the directory opened for it. If something else than a
/// directory has taken its place, making the next one fails (ENOTDIR).
template <class Make>
int ForEachLevel(const std::string& path, const Report& report, Make make) {
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
        if (const int error = make(entry, level); error != 0) {
            return error;
        }
        if (slash != std::string::npos && (above || level.isNew) && !level.fd) {
            level.fd = UniqueFd(openat(entry.dirFd, entry.name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
            if (!level.fd) {
                return FailMkDir(text, CREATE_MODE, errno, report);
            }
        }
        if (level.fd) {
            above = std::move(level.fd);
        }
    } while (slash != std::string::npos);
    return 0;
}

}  // namespace

int DoMkDir(const Entry& directory, const Report& report) {
    Level level;
    return MakeOne(directory, level, report);
}

int MkDir(const std::string& path, int recurseOpt, int& err, int recordKind) {
    const Report report{err, recordKind};
    if (IsPathExist(path, err, RECORD_KIND_NONE) == 1) {
        LogInfo("dir %{public}s already exists", path);
        return 0;
    }
    if (recurseOpt == RECURSE_ALL) {
        const auto make = [&](const Entry& entry, Level& level) { return MakeOne(entry, level, report); };
        if (ForEachLevel(path, report, make) != 0) {
            return -1;
        }
        LogInfo("DoMkDirRecurse %{public}s suc", path);
        return 0;
    }
    if (recurseOpt == RECURSE_NONE) {
        std::string text = path;
        if (DoMkDir(TopEntry(path, text), report) != 0) {
            return -1;
        }
        LogInfo("DoMkDir %{public}s suc", path);
        return 0;
    }
    return ResultOf(RefuseOption(Operation::MkDir, path, recurseOpt, report));
}

int PrepareDir(const PathPara& para, int& err, int recordKind) {
    const Report report{err, recordKind};
    const PermPara perm{para.uid, para.gid, para.mode};
    if (IsPathExist(para.path, err, recordKind) == 1) {
        LogInfo("dir %{public}s already exists", para.path);
        return 0;
    }
    if (para.recurseOpt == RECURSE_ALL) {
        const auto prepare = [&](const Entry& entry, Level& level) { return PrepareOne(entry, perm, level, report); };
        return ResultOf(ForEachLevel(para.path, report, prepare));
    }
    if (para.recurseOpt == RECURSE_NONE) {
        std::string text = para.path;
        return ResultOf(DoPrepareDir(TopEntry(para.path, text), perm, report));
    }
    return ResultOf(RefuseOption(Operation::PrepareDir, para.path, para.recurseOpt, report));
}

int DoPrepareDir(const Entry& directory, const PermPara& perm, const Report& report) {
    Level level;
    return PrepareOne(directory, perm, level, report);
}

}  // namespace TAVO::FileMigrateOrvane
