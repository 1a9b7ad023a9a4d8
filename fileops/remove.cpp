#include "remove.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "log.h"
#include "path_helpers.h"
#include "record_file.h"
#include "top_path.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// @param below  the result for what the directory held
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

int TryRemoveEntry(const Entry& entry, const Report& report) {
    if (!TakeForDirectory(entry, {report.err, RECORD_KIND_NONE})) {
        return DoUnlink(entry, report);
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        return Fail(Step::OpenTryRemove, entry.path, errno, report);
    }
    int result = 0;
    while (const dirent* child = stream.Next()) {
        const ChildPath joined(entry.path, child->d_name);
        if (const int error = TryRemoveEntry(stream.Child(*child, entry.path), report); error != 0) {
            result = error;
        }
    }
    if (stream.ReadError() != 0) {
        result = Fail(Step::OpenTryRemove, entry.path, stream.ReadError(), report);
    }
    stream.Close();
    return DoRmDir(entry, result, report);
}

/// What is gone already needs no removing.
int UnlinkIfThere(const Entry& entry, int flags) {
    return unlinkat(entry.dirFd, entry.name, flags) == 0 || errno == ENOENT ? 0 : errno;
}

int RemoveTree(const Entry& entry);

/// Empties an open directory and removes it. @param entry  its name, by which only an empty directory is removed
int RemoveDirectory(DirectoryStream& stream, const Entry& entry) {
    while (const dirent* child = stream.Next()) {
        // No message names a child, so the text stays that of the directory.
        if (const int error = RemoveTree(stream.Child(*child, entry.path)); error != 0) {
            return error;
        }
    }
    if (stream.ReadError() != 0) {
        return stream.ReadError();
    }
    stream.Close();
    return UnlinkIfThere(entry, AT_REMOVEDIR);
}

/// Like std::filesystem::remove_all, but for a name in an open directory.
int RemoveTree(const Entry& entry) {
    if (entry.type != DT_DIR && entry.type != DT_UNKNOWN) {
        return UnlinkIfThere(entry, 0);
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        if (errno == ENOTDIR || errno == ELOOP) {
            return UnlinkIfThere(entry, 0);
        }
        return errno == ENOENT ? 0 : errno;
    }
    return RemoveDirectory(stream, entry);
}

int FinishRemove(int error, const std::string& path, const Report& report) {
    if (error != 0) {
        return Fail(Step::Remove, path, error, report);
    }
    LogInfo({"Remove %{public}s suc", "Remove"}, path);
    return 0;
}

}  // namespace

[[gnu::noinline]] int DoUnlink(const Entry& entry, const Report& report) {
    return unlinkat(entry.dirFd, entry.name, 0) == 0 ? 0 : Fail(Step::Unlink, entry.path, errno, report);
}

int Remove(const std::string& path, int& err, int recordKind) {
    TopPath top(path);
    const int error = top.Check();
    return ResultOf(error == 0 ? RemoveEntry(top.AsEntry(), {err, recordKind})
                               : Fail(Step::Remove, path, error, {err, recordKind}));
}

int RemoveEntry(const Entry& entry, const Report& report) {
    return FinishRemove(RemoveTree(entry), entry.path, report);
}

int RemoveOpen(DirectoryStream stream, const Entry& entry, const Report& report) {
    stream.Rewind();
    return FinishRemove(RemoveDirectory(stream, entry), entry.path, report);
}

int TryRemove(const std::string& path, int& err, int recordKind) {
    TopPath top(path);
    const int error = top.Check();
    return ResultOf(error == 0 ? TryRemoveEntry(top.AsEntry(), {err, recordKind})
                               : Fail(Step::Unlink, path, error, {err, recordKind}));
}

}  // namespace TAVO::FileMigrateOrvane
