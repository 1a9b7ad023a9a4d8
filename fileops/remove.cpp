#include "remove.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>

#include "directory_stream.h"
#include "error_record.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

[[gnu::noinline]] int DoRmDir(int dirFd, const char* name, const std::string& path, int& err, int recordKind) {
    if (unlinkat(dirFd, name, AT_REMOVEDIR) == 0) {
        return 0;
    }
    err = errno;
    RecordNormalErr("RMDIR", path, err, recordKind);
    LogError("rmdir %{public}s failed, errno=%{public}d", path, err);
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
    return DoRmDir(entry.dirFd, entry.name, entry.path, err, recordKind) == 0 ? result : -1;
}

/// The error-code form of remove_all still throws when memory runs out.
std::error_code RemoveAll(const std::string& path) {
    std::error_code ec;
    try {
        std::filesystem::remove_all(path, ec);
    } catch (const std::filesystem::filesystem_error& failure) {
        ec = failure.code();
    } catch (const std::bad_alloc&) {
        ec = std::make_error_code(std::errc::not_enough_memory);
    }
    return ec;
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
    const std::error_code ec = RemoveAll(path);
    if (ec) {
        err = ec.value();
        LogError("Remove %{public}s failed, errno=%{public}d", path, err);
        RecordNormalErr("REMOVE", path, err, recordKind);
        return -1;
    }
    LogInfo("Remove %{public}s suc", path);
    return 0;
}

int TryRemove(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    return TryRemoveEntry(TopEntry(path, text), err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
