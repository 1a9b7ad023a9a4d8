#include "remove.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "log.h"
#include "path_helpers.h"
#include "record_file.h"
#include "top_path.h"
#include "tree_walk.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// @param below  the result of removing the directory's contents
[[gnu::noinline]] int DoRmDir(const Entry& entry, int below, const Report& report) {
    if (unlinkat(entry.dirFd, entry.name, AT_REMOVEDIR) == 0) {
        return below;
    }
    const int error = errno;
    // One failure far below fails every directory above it. Follow-up failures of directories whose path exceeds
    // PATH_MAX are not reported: no call accepts such a path, and 20,000 levels would write a gigabyte.
    if (below != 0 && error == ENOTEMPTY && entry.path.length() >= PATH_MAX) {
        report.err = error;
        return error;
    }
    return Fail(Step::RmDir, entry.path, error, report);
}

/// Removes as much of a tree as it can.
class TryRemoval final : public TreeWalk {
public:
    TryRemoval() : TreeWalk(OnFailure::Continue, Threads::Many) {}

    int Visit(const Entry& entry, const Report& report) override {
        if (!TakeForDirectory(entry, {report.err, RECORD_KIND_NONE})) {
            return DoUnlink(entry, nullptr, report);
        }
        DirectoryStream stream = DirectoryStream::Open(entry);
        if (!stream) {
            return Fail(Step::OpenTryRemove, entry.path, errno, report);
        }
        int result = VisitChildren(stream, entry.path, report);
        if (stream.ReadError() != 0) {
            result = Fail(Step::OpenTryRemove, entry.path, stream.ReadError(), report);
        }
        stream.Close();
        return DoRmDir(entry, result, report);
    }
};

/// An entry that does not exist any more counts as removed.
int UnlinkIfThere(const Entry& entry, int flags) {
    return unlinkat(entry.dirFd, entry.name, flags) == 0 || errno == ENOENT ? 0 : errno;
}

/// Unlinks what is not a directory, unless it has changed since it was copied.
[[gnu::noinline]] int UnlinkUnchanged(const Entry& entry, RemovalGuard& guard) {
    struct stat now {};
    if (const int error = Lstat(entry, now); error != 0) {
        return error;
    }
    if (guard.watch.HasChanged(now)) {
        return ESTALE;
    }
    guard.watch.NoteUnlink(now);
    return unlinkat(entry.dirFd, entry.name, 0) == 0 ? 0 : errno;
}

/// Removes a tree like std::filesystem::remove_all, but from a name in an open directory. Reports nothing.
class Removal final : public TreeWalk {
public:
    explicit Removal(RemovalGuard* removalGuard) : TreeWalk(OnFailure::Stop, Threads::Many), guard(removalGuard) {}

    int Run(const Entry& entry) {
        int unused = 0;
        return Visit(entry, {unused, RECORD_KIND_NONE});
    }
    int RunOpen(DirectoryStream& stream, const Entry& entry) {
        int unused = 0;
        return EmptyAndRemove(stream, entry, {unused, RECORD_KIND_NONE});
    }

    int Visit(const Entry& entry, const Report& report) override {
        if (entry.type != DT_DIR && entry.type != DT_UNKNOWN) {
            return UnlinkChild(entry);
        }
        DirectoryStream stream = DirectoryStream::Open(entry);
        if (!stream) {
            if (errno == ENOTDIR || errno == ELOOP) {
                return UnlinkChild(entry);
            }
            return errno == ENOENT ? 0 : errno;
        }
        const int error = CheckDirectory(stream);
        return error == 0 ? EmptyAndRemove(stream, entry, report) : error;
    }

private:
    int EmptyAndRemove(DirectoryStream& stream, const Entry& entry, const Report& report) {
        if (const int error = VisitChildren(stream, entry.path, report); error != 0) {
            return error;
        }
        if (stream.ReadError() != 0) {
            return stream.ReadError();
        }
        stream.Close();
        return UnlinkIfThere(entry, AT_REMOVEDIR);
    }

    int UnlinkChild(const Entry& entry) {
        if (guard == nullptr) {
            return UnlinkIfThere(entry, 0);
        }
        const int error = UnlinkUnchanged(entry, *guard);
        return error == ENOENT ? 0 : error;
    }

    /// Checks that an open directory may be emptied. @return 0 or an error number
    [[gnu::noinline]] int CheckDirectory(const DirectoryStream& stream) {
        struct stat now {};
        if (guard == nullptr) {
            return 0;
        }
        if (fstat(stream.Fd(), &now) != 0) {
            return errno;
        }
        const auto failed = guard->failed.find({now.st_dev, now.st_ino});
        if (failed != guard->failed.end()) {
            return failed->second;
        }
        return guard->watch.HasChanged(now) ? ESTALE : 0;
    }

    RemovalGuard* const guard;  ///< the threads of the walk change only its watch, which has a lock
};

}  // namespace

[[gnu::noinline]] int DoUnlink(const Entry& entry, RemovalGuard* guard, const Report& report) {
    const int plain = guard == nullptr && unlinkat(entry.dirFd, entry.name, 0) != 0 ? errno : 0;
    const int error = guard == nullptr ? plain : UnlinkUnchanged(entry, *guard);
    return error == 0 ? 0 : Fail(Step::Unlink, entry.path, error, report);
}

int Remove(const std::string& path, int& err, int recordKind) {
    TopPath top(path);
    const int error = top.Check();
    return ResultOf(error == 0 ? RemoveEntry(top.AsEntry(), nullptr, {err, recordKind})
                               : Fail(Step::Remove, path, error, {err, recordKind}));
}

int RemoveEntry(const Entry& entry, RemovalGuard* guard, const Report& report) {
    return FinishRemove(Removal(guard).Run(entry), entry.path, report);
}

int EmptyAndRemove(DirectoryStream& stream, const Entry& entry, RemovalGuard* guard) {
    stream.Rewind();
    return Removal(guard).RunOpen(stream, entry);
}

int FinishRemove(int error, const std::string& path, const Report& report) {
    if (error != 0) {
        return Fail(Step::Remove, path, error, report);
    }
    LogRoutine(LogLevel::Info, {"Remove %{public}s suc", "Remove"}, path);
    return 0;
}

int TryRemove(const std::string& path, int& err, int recordKind) {
    TopPath top(path);
    const int error = top.Check();
    return ResultOf(error == 0 ? TryRemoval().Visit(top.AsEntry(), {err, recordKind})
                               : Fail(Step::Unlink, path, error, {err, recordKind}));
}

}  // namespace TAVO::FileMigrateOrvane
