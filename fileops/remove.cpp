#include "remove.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "error_record.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// @param below  the result for what the directory held
[[gnu::noinline]] int DoRmDir(const Entry& entry, int below, int& err, int recordKind) {
    if (unlinkat(entry.dirFd, entry.name, AT_REMOVEDIR) == 0) {
        return below;
    }
    err = errno;
    // One failure far below fails every directory above it. Those whose path is of no use to anybody, since no call
    // takes one so long, are not told: from a tree of 20,000 levels that were a gigabyte.
    if (below != 0 && err == ENOTEMPTY && entry.path.length() >= PATH_MAX) {
        return -1;
    }
    RecordNormalErr("RMDIR", entry.path, err, recordKind);
    LogError("rmdir %{public}s failed, errno=%{public}d", entry.path, err);
    return -1;
}

[[gnu::noinline]] int OpenFailed(const std::string& path, int& err, int recordKind) {
    err = errno;
    RecordNormalErr("OPEN_TRYREMOVE", path, err, recordKind);
    LogError({"open dir %{public}s failed, errno %{public}d", "TryRemove"}, path, err);
    return -1;
}

int TryRemoveEntry(const Entry& entry, int& err, int recordKind) {
    if (!TakeForDirectory(entry, err)) {
        return DoUnlink(entry.dirFd, entry.name, entry.path, err, recordKind);
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        return OpenFailed(entry.path, err, recordKind);
    }
    int result = 0;
    while (const dirent* child = stream.Next()) {
        const ChildPath joined(entry.path, child->d_name);
        if (TryRemoveEntry(stream.Child(*child, entry.path), err, recordKind) != 0) {
            result = -1;
        }
    }
    stream.Close();
    return DoRmDir(entry, result, err, recordKind);
}

/// What is gone already needs no removing.
int UnlinkIfThere(int dirFd, const char* name, int flags) {
    return unlinkat(dirFd, name, flags) == 0 || errno == ENOENT ? 0 : -1;
}

int RemoveTree(const Entry& entry);

/// Empties an open directory and removes it. @param entry its name, by which only an empty directory is removed
int RemoveDirectory(DirectoryStream& stream, const Entry& entry) {
    while (const dirent* child = stream.Next()) {
        if (RemoveTree(stream.Child(*child, entry.path)) != 0) {  // nothing is told of it, so its path is not made
            return -1;
        }
    }
    if (stream.ReadError() != 0) {
        errno = stream.ReadError();
        return -1;
    }
    stream.Close();
    return UnlinkIfThere(entry.dirFd, entry.name, AT_REMOVEDIR);
}

/// Like std::filesystem::remove_all, but for a name in an open directory.
int RemoveTree(const Entry& entry) {
    if (entry.type != DT_DIR && entry.type != DT_UNKNOWN) {
        return UnlinkIfThere(entry.dirFd, entry.name, 0);
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        if (errno == ENOTDIR || errno == ELOOP) {
            return UnlinkIfThere(entry.dirFd, entry.name, 0);
        }
        return errno == ENOENT ? 0 : -1;
    }
    return RemoveDirectory(stream, entry);
}

int RemoveSucceeded(const std::string& path) {
    LogInfo({"Remove %{public}s suc", "Remove"}, path);
    return 0;
}

}  // namespace

[[gnu::noinline]] int DoUnlink(int dirFd, const char* name, const std::string& path, int& err, int recordKind) {
    if (unlinkat(dirFd, name, 0) == 0) {
        return 0;
    }
    err = errno;
    RecordNormalErr("Unlink", path, err, recordKind);
    LogError("unlink %{public}s failed, errno=%{public}d", path, err);
    return -1;
}

int Remove(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    return DoRemove(TopEntry(path, text), err, recordKind);
}

int DoRemove(const Entry& entry, int& err, int recordKind) {
    return RemoveTree(entry) == 0 ? RemoveSucceeded(entry.path) : RemoveFailed(entry.path, errno, err, recordKind);
}

int DoRemove(DirectoryStream stream, const Entry& entry, int& err, int recordKind) {
    stream.Rewind();
    return RemoveDirectory(stream, entry) == 0 ? RemoveSucceeded(entry.path)
                                               : RemoveFailed(entry.path, errno, err, recordKind);
}

[[gnu::noinline]] int RemoveFailed(const std::string& path, int error, int& err, int recordKind) {
    err = error;
    LogError({"Remove %{public}s failed, errno=%{public}d", "Remove"}, path, err);
    RecordNormalErr("REMOVE", path, err, recordKind);
    return -1;
}

int TryRemove(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    return TryRemoveEntry(TopEntry(path, text), err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
