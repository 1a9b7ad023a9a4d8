#include "owner_mode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "access_acl.h"
#include "directory_stream.h"
#include "log.h"
#include "path_helpers.h"
#include "record_file.h"
#include "top_path.h"
#include "tree_walk.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// fchmodat2(2), Linux 6.6, which Debian 12's headers do not know yet; all newer architectures share the number.
#ifdef SYS_fchmodat2
constexpr long FCHMODAT2 = SYS_fchmodat2;
#else
constexpr long FCHMODAT2 = 452;
#endif

/// lchmod relative to a directory. The C library's own needs /proc and four calls, so it serves only kernels without
/// the call. @return 0 or an error number
int ChModNoFollow(int dirFd, const char* name, unsigned int mode) {
    if (syscall(FCHMODAT2, dirFd, name, mode, AT_SYMLINK_NOFOLLOW) == 0) {
        return 0;
    }
    return errno == ENOSYS && fchmodat(dirFd, name, mode, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

struct OwnerChange {
    static constexpr Step OPEN = Step::OpenChOwn;
    const OwnerIds owner;

    [[nodiscard]] int Apply(const Entry& entry, const Report& report) const {
        const int result = fchownat(entry.dirFd, entry.name, owner.uid, owner.gid, AT_SYMLINK_NOFOLLOW);
        return result == 0 ? 0 : Failed(entry.path, errno, report);
    }
    [[nodiscard]] int Failed(const std::string& path, int error, const Report& report) const {
        return FailChOwn(path, owner, error, report);
    }
};

struct ModeChange {
    static constexpr Step OPEN = Step::OpenChMod;
    const unsigned int mode;

    [[nodiscard]] int Apply(const Entry& entry, const Report& report) const {
        const int error = ChModNoFollow(entry.dirFd, entry.name, mode);
        return error == 0 ? 0 : Failed(entry.path, error, report);
    }
    [[nodiscard]] int Failed(const std::string& path, int error, const Report& report) const {
        return FailChMod(path, mode, error, report);
    }
};

/// Changes a tree, each directory before its contents. Continues after an entry that fails.
template <class Change>
class ChangeWalk final : public TreeWalk {
public:
    explicit ChangeWalk(const Change& toApply) : TreeWalk(OnFailure::Continue, Threads::Many), change(toApply) {}

    int Visit(const Entry& entry, const Report& report) override {
        bool isToEnter = false;
        const int error = ChangeOne(entry, isToEnter, report);
        return isToEnter ? ChangeContents(DirectoryStream::Open(entry), entry.path, report) : error;
    }

    /// @param stream  if it is empty, errno says why
    int ChangeContents(DirectoryStream stream, std::string& path, const Report& report) {
        if (!stream) {
            return Fail(Change::OPEN, path, errno, report);
        }
        const int result = VisitChildren(stream, path, report);
        return stream.ReadError() == 0 ? result : Fail(Change::OPEN, path, stream.ReadError(), report);
    }

private:
    /// @param isToEnter  set if it is a directory
    [[gnu::noinline]] int ChangeOne(const Entry& entry, bool& isToEnter, const Report& report) {
        const int error = change.Apply(entry, report);
        isToEnter = error == 0 && TakeForDirectory(entry, {report.err, RECORD_KIND_NONE});
        return error;
    }

    const Change change;
};

/// Changes the object that a request names. A path that ends in a slash must be a directory.
template <class Change>
int ChangeTop(const Change& change, const std::string& path, bool isRecursive, const Report& report) {
    TopPath top(path);
    if (const int error = top.Check(); error != 0) {
        return change.Failed(path, error, report);
    }
    return isRecursive ? ChangeWalk(change).Visit(top.AsEntry(), report) : change.Apply(top.AsEntry(), report);
}

bool IsDirectory(const UniqueFd& object) {
    struct stat st {};
    return fstat(object.Get(), &st) == 0 && S_ISDIR(st.st_mode);
}

int ChModObject(const UniqueFd& object, const std::string& path, unsigned int mode) {
    if (!object) {
        return ChModNoFollow(AT_FDCWD, path.c_str(), mode);
    }
    return fchmod(object.Get(), mode) == 0 ? 0 : errno;
}

int ChOwnObject(const UniqueFd& object, const std::string& path, const OwnerIds& owner) {
    const auto& [uid, gid] = owner;
    // Unlike fchown(), this also takes an object that was opened with O_PATH.
    const int result = object ? fchownat(object.Get(), "", uid, gid, AT_EMPTY_PATH) : lchown(path.c_str(), uid, gid);
    return result == 0 ? 0 : errno;
}

}  // namespace

int DoChOwn(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind) {
    return ResultOf(ChangeTop(OwnerChange{{uid, gid}}, path, /*isRecursive=*/false, {err, recordKind}));
}

int DoChMod(const std::string& path, unsigned int mode, int& err, int recordKind) {
    return ResultOf(ChangeTop(ModeChange{mode}, path, /*isRecursive=*/false, {err, recordKind}));
}

int DoChOwnRecurse(const std::string& path, unsigned int uid, unsigned int gid, int& err, int recordKind) {
    return ResultOf(ChangeTop(OwnerChange{{uid, gid}}, path, /*isRecursive=*/true, {err, recordKind}));
}

int DoChModRecurse(const std::string& path, unsigned int mode, int& err, int recordKind) {
    return ResultOf(ChangeTop(ModeChange{mode}, path, /*isRecursive=*/true, {err, recordKind}));
}

int DoChOwnRecurse(const Entry& entry, const OwnerIds& owner, const Report& report) {
    return ChangeWalk(OwnerChange{owner}).Visit(entry, report);
}

int DoChOwnRecurse(const UniqueFd& object, std::string& path, const OwnerIds& owner, const Report& report) {
    if (const int error = ChOwnObject(object, path, owner); error != 0) {
        return FailChOwn(path, owner, error, report);
    }
    return IsDirectory(object)
               ? ChangeWalk(OwnerChange{owner}).ChangeContents(DirectoryStream::Of(object), path, report)
               : 0;
}

int SetModeAndOwner(const UniqueFd& object, const std::string& path, const PermPara& perm, const Report& report) {
    constexpr unsigned int setIdBits = S_ISUID | S_ISGID;
    const OwnerIds owner{perm.uid, perm.gid};
    // Before it has its owner, the object may belong to any group. If the owner cannot be given, this mode stays.
    unsigned int first = perm.mode & ~setIdBits;
    if (object) {
        first = LimitToGroup(first, object.Get(), perm.gid);
    }
    if (const int error = ChModObject(object, path, first); error != 0) {
        return FailChMod(path, perm.mode, error, report);
    }
    if (const int error = ChOwnObject(object, path, owner); error != 0) {
        return FailChOwn(path, owner, error, report);
    }
    const int error = first != perm.mode ? ChModObject(object, path, perm.mode) : 0;
    return error == 0 ? 0 : FailChMod(path, perm.mode, error, report);
}

int ChOwn(const PathPara& para, int& err, int recordKind) {
    const auto& [path, uid, gid, mode, recurseOpt] = para;
    if (uid == NOT_GIVEN || gid == NOT_GIVEN) {
        return ResultOf(RefuseOwner(path, {err, recordKind}));
    }
    if (recurseOpt != RECURSE_ALL && recurseOpt != RECURSE_NONE) {
        return ResultOf(RefuseOption(Operation::ChOwn, path, recurseOpt, {err, recordKind}));
    }
    const auto change = recurseOpt == RECURSE_ALL ? static_cast<decltype(&DoChOwn)>(DoChOwnRecurse) : DoChOwn;
    if (change(path, uid, gid, err, recordKind) != 0) {
        return -1;
    }
    LogRoutine(LogLevel::Info, "%{public}s %{public}s %{public}u %{public}u suc",
               recurseOpt == RECURSE_ALL ? "DoChOwnRecurse" : "DoChOwn", path, uid, gid);
    return 0;
}

int ChMod(const PathPara& para, int& err, int recordKind) {
    const auto& [path, uid, gid, mode, recurseOpt] = para;
    if (mode == NOT_GIVEN) {
        return ResultOf(RefuseMode(path, {err, recordKind}));
    }
    if (recurseOpt != RECURSE_ALL && recurseOpt != RECURSE_NONE) {
        return ResultOf(RefuseOption(Operation::ChMod, path, recurseOpt, {err, recordKind}));
    }
    const auto change = recurseOpt == RECURSE_ALL ? DoChModRecurse : DoChMod;
    if (change(path, mode, err, recordKind) != 0) {
        return -1;
    }
    LogRoutine(LogLevel::Info, "%{public}s %{public}s %{public}o suc",
               recurseOpt == RECURSE_ALL ? "DoChModRecurse" : "DoChMod", path, mode);
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
