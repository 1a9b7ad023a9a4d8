#include "space.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "directory_stream.h"
#include "failures.h"
#include "path_helpers.h"
#include "record_file.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Converts 512-byte blocks to KB, rounding down.
int BlocksToKB(std::uint32_t blocks) {
    return static_cast<int>(blocks >> 1);
}

[[gnu::noinline]] int AddBlks(const Entry& entry, std::uint32_t& totalBlocks, bool& isDir, const Report& report) {
    struct stat st {};
    if (const int error = Lstat(entry, st); error != 0) {
        return Fail(Step::LstatAddBlks, entry.path, error, report);
    }
    totalBlocks += static_cast<std::uint32_t>(st.st_blocks);
    isDir = S_ISDIR(st.st_mode) && IsDir(entry, {report.err, RECORD_KIND_NONE}) != 0;
    return 0;
}

int AddBlksRecurse(const Entry& entry, std::uint32_t& totalBlocks, const Report& report) {
    bool isDir = false;
    if (const int error = AddBlks(entry, totalBlocks, isDir, report); error != 0 || !isDir) {
        return error;
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        return Fail(Step::OpenAddBlks, entry.path, errno, report);
    }
    int result = 0;
    while (const dirent* child = stream.Next()) {
        const ChildPath joined(entry.path, child->d_name);
        if (const int error = AddBlksRecurse(stream.Child(*child, entry.path), totalBlocks, report); error != 0) {
            result = error;
        }
    }
    return result;
}

[[gnu::noinline]] int RecMaxSize(const Entry& entry, std::int64_t& maxBlocks, const Report& report) {
    struct stat st {};
    if (const int error = Lstat(entry, st); error != 0) {
        return Fail(Step::LstatMaxSize, entry.path, error, report);
    }
    if (!S_ISDIR(st.st_mode)) {  // if it is one, it was replaced since it was listed
        maxBlocks = std::max<std::int64_t>(maxBlocks, st.st_blocks);
    }
    return 0;
}

int RecMaxSizeRecurse(const Entry& entry, std::int64_t& maxBlocks, const Report& report) {
    if (!TakeForDirectory(entry, report)) {
        return RecMaxSize(entry, maxBlocks, report);
    }
    DirectoryStream stream = DirectoryStream::Open(entry);
    if (!stream) {
        return Fail(Step::OpenMaxSize, entry.path, errno, report);
    }
    while (const dirent* child = stream.Next()) {
        const ChildPath joined(entry.path, child->d_name);
        if (const int error = RecMaxSizeRecurse(stream.Child(*child, entry.path), maxBlocks, report); error != 0) {
            return error;
        }
    }
    return 0;
}

}  // namespace

int GetUsedSpaceInKB(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    std::uint32_t totalBlocks = 0;
    (void)AddBlksRecurse(TopEntry(path, text), totalBlocks, {err, recordKind});  // failures only show in `err`
    return BlocksToKB(totalBlocks);
}

int GetMaxSizeInKB(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    std::int64_t maxBlocks = 0;
    if (RecMaxSizeRecurse(TopEntry(path, text), maxBlocks, {err, recordKind}) != 0) {
        return -1;
    }
    return BlocksToKB(static_cast<std::uint32_t>(maxBlocks));
}

}  // namespace TAVO::FileMigrateOrvane
