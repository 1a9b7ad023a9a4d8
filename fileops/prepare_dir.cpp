#include "prepare_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "access_acl.h"
#include "log.h"
#include "new_directory.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "record_file.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// One level of a path that is being created.
struct Level {
    bool isNew = false;        ///< this request has created it
    NewDirectory directory{};  ///< the created directory, once it is open
    bool isInCopy = false;     ///< it does not keep the access lists that it inherited
};

/// DoMkDir that also returns whether the directory is new.
int MakeOne(const Entry& directory, mode_t mode, bool& isNew, const Report& report) {
    isNew = mkdirat(directory.dirFd, directory.name, mode) == 0;
    return isNew || errno == EEXIST ? 0 : FailMkDir(directory.path, CREATE_MODE, errno, report);
}

/// Gives a new directory its mode and owner. Another worker may have made a directory in it already.
/// @param start  InodeClock() before it was made
int FinishNew(const Entry& directory, const PermPara& perm, const timespec& start, Level& level, const Report& report) {
    int error = level.directory.Open(directory, start);
    if (error == 0 && level.isInCopy) {
        error = DropInheritedAcls(level.directory.Fd().Get());
    }
    return error == 0 ? SetModeAndOwner(level.directory.Fd(), directory.path, perm, report)
                      : FailChMod(directory.path, perm.mode, error, report);
}

/// Handles an object that mkdir() found although an earlier check did not. The object is not changed, as if the check
/// had found it. The check never finds a dangling link, which has no mode that could be set.
/// @param probeError  the error of that check, or 0; after an error it is not known whether this is a success
int LeaveExisting(const Entry& directory, const PermPara& perm, int probeError, const Report& report) {
    struct stat st {};
    const int error = Lstat(directory, st);
    if (error == 0 && !S_ISLNK(st.st_mode)) {
        return probeError;
    }
    return FailChMod(directory.path, perm.mode, error != 0 ? error : EOPNOTSUPP, report);
}

/// DoPrepareDir that also returns the directory that it created.
int PrepareOne(const Entry& directory, const PermPara& perm, Level& level, const Report& report) {
    const int isThere = IsPathExist(directory, report);
    if (isThere == 1) {
        return 0;
    }
    const int probeError = isThere == 0 ? 0 : report.err;
    const timespec start = InodeClock();
    int error = MakeOne(directory, NEW_DIRECTORY_MODE, level.isNew, report);
    if (error == 0) {
        error = level.isNew ? FinishNew(directory, perm, start, level, report)
                            : LeaveExisting(directory, perm, probeError, report);
    }
    if (error != 0) {
        return FailPrepareDir(directory.path, {perm.uid, perm.gid}, perm.mode, error, report);
    }
    if (level.isNew) {
        LogRoutine(LogLevel::Info, {"DoPrepareDir %{public}s suc: %{public}u, %{public}u, %{public}o", "DoPrepareDir"},
                   directory.path, perm.uid, perm.gid, perm.mode);
    }
    return 0;
}

/// Calls `make` with each ancestor written in the path, the outermost first, and then with the path itself; stops at
/// the first failure. Once a level is new, the next is a name in the directory opened for it. If an object other than a
/// directory has taken its place, creating the next one fails (ENOTDIR).
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
        UniqueFd made = level.directory.ReleaseFd();
        if (slash != std::string::npos && (above || level.isNew) && !made) {
            made = UniqueFd(openat(entry.dirFd, entry.name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
            if (!made) {
                return FailMkDir(text, CREATE_MODE, errno, report);
            }
        }
        if (made) {
            above = std::move(made);
        }
    } while (slash != std::string::npos);
    return 0;
}

}  // namespace

int DoMkDir(const Entry& directory, const Report& report) {
    bool isNew = false;
    return MakeOne(directory, CREATE_MODE, isNew, report);
}

int MkDir(const std::string& path, int recurseOpt, int& err, int recordKind) {
    const Report report{err, recordKind};
    if (IsPathExist(path, err, RECORD_KIND_NONE) == 1) {
        LogRoutine(LogLevel::Info, "dir %{public}s already exists", path);
        return 0;
    }
    if (recurseOpt == RECURSE_ALL) {
        const auto make = [&](const Entry& entry, Level& level) {
            return MakeOne(entry, CREATE_MODE, level.isNew, report);
        };
        if (ForEachLevel(path, report, make) != 0) {
            return -1;
        }
        LogRoutine(LogLevel::Info, "DoMkDirRecurse %{public}s suc", path);
        return 0;
    }
    if (recurseOpt == RECURSE_NONE) {
        std::string text = path;
        if (DoMkDir(TopEntry(path, text), report) != 0) {
            return -1;
        }
        LogRoutine(LogLevel::Info, "DoMkDir %{public}s suc", path);
        return 0;
    }
    return ResultOf(RefuseOption(Operation::MkDir, path, recurseOpt, report));
}

int PrepareDir(const PathPara& para, int& err, int recordKind) {
    const Report report{err, recordKind};
    const PermPara perm{para.uid, para.gid, para.mode};
    if (IsPathExist(para.path, err, recordKind) == 1) {
        LogRoutine(LogLevel::Info, "dir %{public}s already exists", para.path);
        return 0;
    }
    if (para.recurseOpt == RECURSE_ALL) {
        const auto prepare = [&](const Entry& entry, Level& level) { return PrepareOne(entry, perm, level, report); };
        return ResultOf(ForEachLevel(para.path, report, prepare));
    }
    if (para.recurseOpt == RECURSE_NONE) {
        std::string text = para.path;
        Level level;
        return ResultOf(PrepareOne(TopEntry(para.path, text), perm, level, report));
    }
    return ResultOf(RefuseOption(Operation::PrepareDir, para.path, para.recurseOpt, report));
}

int DoPrepareDir(const Entry& directory, const PermPara& perm, const Report& report) {
    Level level{.isInCopy = true};
    return PrepareOne(directory, perm, level, report);
}

}  // namespace TAVO::FileMigrateOrvane
