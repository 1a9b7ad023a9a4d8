#include "space.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "directory_stream.h"
#include "error_record.h"
#include "log.h"
#include "path_helpers.h"
#include "record_file.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// 512-byte blocks to KB, an odd half dropped.
int BlocksToKB(std::uint32_t blocks) {
    return static_cast<int>(blocks >> 1);
}

[[gnu::noinline]] int AddBlks(const Entry& entry, std::uint32_t& totalBlocks, bool& isDir, int& err, int recordKind) {
    struct stat st {};
    if (fstatat(entry.dirFd, entry.name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        err = errno;
        LogError("lstat %{public}s failed, errno=%{public}d", entry.path, err);
        RecordErrForPath("ADDBLKS_LSTAT", entry.path, err, recordKind);
        return -1;
    }
    totalBlocks += static_cast<std::uint32_t>(st.st_blocks);
    isDir = S_ISDIR(st.st_mode) && IsDir(entry.dirFd, entry.name, entry.path, err, RECORD_KIND_NONE) != 0;
    return 0;
}

[[gnu::noinline]] int AddBlksOpenFailed(const std::string& path, int& err, int recordKind) {
    err = errno;
    LogError({"open dir %{public}s failed, errno %{public}d", "AddBlksRecurse"}, path, err);
    RecordNormalErr("OPEN_ADDBLKSRECURSE", path, err, recordKind);
    return -1;
}

int AddBlksRecurse(const Entry& entry, std::uint32_t& totalBlocks, int& err, int recordKind) {
    bool isDir = false;
    if (AddBlks(entry, totalBlocks, isDir, err, recordKind) != 0) {
        return -1;
    }
    if (!isDir) {
        return 0;
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        return AddBlksOpenFailed(entry.path, err, recordKind);
    }
    int result = 0;
    while (const dirent* child = stream.Next()) {
        const ChildPath joined(entry.path, child->d_name);
        if (AddBlksRecurse(stream.Child(*child, entry.path), totalBlocks, err, recordKind) != 0) {
            result = -1;
        }
    }
    return result;
}

[[gnu::noinline]] int RecMaxSize(const Entry& entry, std::int64_t& maxBlocks, int& err, int recordKind) {
    struct stat st {};
    if (fstatat(entry.dirFd, entry.name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        err = errno;
        LogError("lstat %{public}s failed, errno=%{public}d", entry.path, err);
        RecordErrForPath("MAXSIZE_LSTAT", entry.path, err, recordKind);
        return -1;
    }
    if (!S_ISDIR(st.st_mode)) {  // it has been exchanged since it was listed
        maxBlocks = std::max<std::int64_t>(maxBlocks, st.st_blocks);
    }
    return 0;
}

[[gnu::noinline]] int RecMaxSizeOpenFailed(const std::string& path, int& err, int recordKind) {
    err = errno;
    LogError({"open dir %{public}s failed, errno %{public}d", "RecMaxSizeRecurse"}, path, err);
    RecordNormalErr("OPEN_RECMAXSIZERECURSE", path, err, recordKind);
    return -1;
}

int RecMaxSizeRecurse(const Entry& entry, std::int64_t& maxBlocks, int& err, int recordKind) {
    if (!TakeForDirectory(entry, err, recordKind)) {
        return RecMaxSize(entry, maxBlocks, err, recordKind);
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        return RecMaxSizeOpenFailed(entry.path, err, recordKind);
    }
    while (const dirent* child = stream.Next()) {
        const ChildPath joined(entry.path, child->d_name);
        if (RecMaxSizeRecurse(stream.Child(*child, entry.path), maxBlocks, err, recordKind) != 0) {
            return -1;
        }
    }
    return 0;
}

}  // namespace

int GetUsedSpaceInKB(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    std::uint32_t totalBlocks = 0;
    (void)AddBlksRecurse(TopEntry(path, text), totalBlocks, err, recordKind);  // `err` tells
    return BlocksToKB(totalBlocks);
}

int GetMaxSizeInKB(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    std::int64_t maxBlocks = 0;
    if (RecMaxSizeRecurse(TopEntry(path, text), maxBlocks, err, recordKind) != 0) {
        return -1;
    }
    return BlocksToKB(static_cast<std::uint32_t>(maxBlocks));
}

}  // namespace TAVO::FileMigrateOrvane
