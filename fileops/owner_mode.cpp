#include "owner_mode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "directory_stream.h"
#include "error_record.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// fchmodat2(2), Linux 6.6, which Debian 12's headers do not know yet; the number is that of all newer architectures.
#ifdef SYS_fchmodat2
constexpr long FCHMODAT2 = SYS_fchmodat2;
#else
constexpr long FCHMODAT2 = 452;
#endif

/// lchmod relative to a directory. The C library's own needs /proc and four calls, so it only serves kernels
/// without the call.
int ChModNoFollow(int dirFd, const char* name, unsigned int mode) {
    if (syscall(FCHMODAT2, dirFd, name, mode, AT_SYMLINK_NOFOLLOW) == 0) {
        return 0;
    }
    return errno == ENOSYS ? fchmodat(dirFd, name, mode, AT_SYMLINK_NOFOLLOW) : -1;
}

struct OwnerChange {
    const unsigned int uid;
    const unsigned int gid;

    int Apply(int dirFd, const char* name, const std::string& path, int& err, int recordKind) const {
        return fchownat(dirFd, name, uid, gid, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : Failed(path, err, recordKind);
    }

    [[gnu::noinline]] int Failed(const std::string& path, int& err, int recordKind) const {
        err = errno;
        LogError({"lchown %{public}s %{public}u %{public}u failed, errno=%{public}d", "DoChOwn"}, path, uid, gid, err);
        RecordChownErr(path, uid, gid, err, recordKind);
        return -1;
    }

    [[gnu::noinline]] static int OpenFailed(const std::string& path, int& err, int recordKind) {
        err = errno;
        RecordErrForPath("OPEN_CHMOWNERECURSE", path, err, recordKind);
        LogError({"open dir %{public}s failed, errno %{public}d", "DoChOwnRecurse"}, path, err);
        return -1;
    }
};

struct ModeChange {
    const unsigned int mode;

    int Apply(int dirFd, const char* name, const std::string& path, int& err, int recordKind) const {
        return ChModNoFollow(dirFd, name, mode) == 0 ? 0 : Failed(path, err, recordKind);
    }

    [[gnu::noinline]] int Failed(const std::string& path, int& err, int recordKind) const {
        err = errno;
        LogError({"lchmod %{public}s %{public}o failed, errno=%{public}d", "DoChMod"}, path, mode, err);
        RecordChmodErr(path, mode, err, recordKind);
        return -1;
    }

    [[gnu::noinline]] static int OpenFailed(const std::string& path, int& err, int recordKind) {
        err = errno;
        RecordErrForPath("OPEN_CHMODERECURSE", path, err, recordKind);
        LogError({"open dir %{public}s failed, errno %{public}d", "DoChModRecurse"}, path, err);
        return -1;
    }
};

template <class Change>
int ChangeOne(const Change& change, const std::string& path, int& err, int recordKind) {
    return change.Apply(AT_FDCWD, path.c_str(), path, err, recordKind);
}

template <class Change>
int ChangeTree(const Change& change, const Entry& entry, int& err, int recordKind) {
    if (change.Apply(entry.dirFd, entry.name, entry.path, err, recordKind) != 0) {
        return -1;
    }
    if (!TakeForDirectory(entry, err)) {
        return 0;
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        return Change::OpenFailed(entry.path, err, recordKind);
    }
    int result = 0;
    while (const dirent* child = stream.Next()) {
        const ChildPath joined(entry.path, child->d_name);
        if (ChangeTree(change, stream.Child(*child, entry.path), err, recordKind) != 0) {
            result = -1;
        }
    }
    return result;
}

bool IsDirectory(const UniqueFd& object) {
    struct stat st {};
    return fstat(object.Get(), &st) == 0 && S_ISDIR(st.st_mode);
}

int ChModObject(const UniqueFd& object, const std::string& path, unsigned int mode) {
    return object ? fchmod(object.Get(), mode) : ChModNoFollow(AT_FDCWD, path.c_str(), mode);
}

int ChOwnObject(const UniqueFd& object, const std::string& path, unsigned int uid, unsigned int gid) {
    // Unlike fchown(), this also takes an object that is open for its place only.
    return object ? fchownat(object.Get(), "", uid, gid, AT_EMPTY_PATH) : lchown(path.c_str(), uid, gid);
}

}  // namespace

int DoChOwn(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind) {
    return ChangeOne(OwnerChange{uid, gid}, path, err, recordKind);
}

int DoChMod(const std::string& path, unsigned int mode, int& err, int recordKind) {
    return ChangeOne(ModeChange{mode}, path, err, recordKind);
}

int DoChOwnRecurse(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind) {
    std::string text = path;
    return ChangeTree(OwnerChange{uid, gid}, TopEntry(path, text), err, recordKind);
}

int DoChOwnRecurse(const UniqueFd& object, const std::string& path, unsigned int uid, unsigned int gid, int& err,
                   int recordKind) {
    const OwnerChange change{uid, gid};
    if (IsDirectory(object)) {
        std::string text = path;
        return ChangeTree(change, Entry{object.Get(), ".", DT_DIR, text}, err, recordKind);
    }
    return ChOwnObject(object, path, uid, gid) == 0 ? 0 : change.Failed(path, err, recordKind);
}

int SetModeAndOwner(const UniqueFd& object, const std::string& path, const PermPara& perm, int& err, int recordKind) {
    constexpr unsigned int SET_ID_BITS = S_ISUID | S_ISGID;
    const ModeChange change{perm.mode};
    if (ChModObject(object, path, perm.mode & ~SET_ID_BITS) != 0) {
        return change.Failed(path, err, recordKind);
    }
    if (ChOwnObject(object, path, perm.uid, perm.gid) != 0) {
        return OwnerChange{perm.uid, perm.gid}.Failed(path, err, recordKind);
    }
    const bool hasSetId = (perm.mode & SET_ID_BITS) != 0;
    return !hasSetId || ChModObject(object, path, perm.mode) == 0 ? 0 : change.Failed(path, err, recordKind);
}

int DoChModRecurse(const std::string& path, unsigned int mode, int& err, int recordKind) {
    std::string text = path;
    return ChangeTree(ModeChange{mode}, TopEntry(path, text), err, recordKind);
}

int ChOwn(const PathPara& para, int& err, int recordKind) {
    if (para.uid == NOT_GIVEN || para.gid == NOT_GIVEN) {
        LogError("Invalid uid:gid");
        err = EINVAL;
        return -1;
    }
    if (para.recurseOpt == RECURSE_ALL) {
        if (DoChOwnRecurse(para.path, para.uid, para.gid, err, recordKind) != 0) {
            return -1;
        }
        LogInfo("DoChOwnRecurse %{public}s %{public}u %{public}u suc", para.path, para.uid, para.gid);
        return 0;
    }
    if (para.recurseOpt == RECURSE_NONE) {
        if (DoChOwn(para.path, para.uid, para.gid, err, recordKind) != 0) {
            return -1;
        }
        LogInfo("DoChOwn %{public}s %{public}u %{public}u suc", para.path, para.uid, para.gid);
        return 0;
    }
    LogError("Unexpected recurseOpt:%{public}d, not chown %{public}s", para.recurseOpt, para.path);
    err = EINVAL;
    RecordRecurseOptErr("INVALID_RECURSEOPT_CHOWN", para.path, para.recurseOpt, err, recordKind);
    return -1;
}

int ChMod(const PathPara& para, int& err, int recordKind) {
    if (para.mode == NOT_GIVEN) {
        LogWarn("invalid mode");
        err = EINVAL;
        return -1;
    }
    if (para.recurseOpt == RECURSE_ALL) {
        if (DoChModRecurse(para.path, para.mode, err, recordKind) != 0) {
            return -1;
        }
        LogInfo("DoChModRecurse %{public}s %{public}o suc", para.path, para.mode);
        return 0;
    }
    if (para.recurseOpt == RECURSE_NONE) {
        if (DoChMod(para.path, para.mode, err, recordKind) != 0) {
            return -1;
        }
        LogInfo("DoChMod %{public}s %{public}o suc", para.path, para.mode);
        return 0;
    }
    LogError("Unexpected recurseOpt:%{public}d, not chmod %{public}s", para.recurseOpt, para.path);
    err = EINVAL;
    RecordRecurseOptErr("INVALID_RECURSEOPT_CHMOD", para.path, para.recurseOpt, err, recordKind);
    return -1;
}

}  // namespace TAVO::FileMigrateOrvane
