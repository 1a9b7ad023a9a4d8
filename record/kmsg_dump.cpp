#include "kmsg_dump.h"

#include <sys/klog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>
#include <string_view>

#include "concat.h"
#include "log.h"
#include "owner_mode.h"
#include "path_para.h"
#include "prepare_dir.h"
#include "record_file.h"
#include "record_format.h"
#include "remove.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr unsigned int DUMP_UID = 0;
constexpr unsigned int DUMP_GID = 1000;
constexpr unsigned int DUMP_DIR_MODE = 0771;
constexpr unsigned int DUMP_FILE_MODE = 0770;

// Numbers of klogctl(), see syslog(2).
constexpr int SYSLOG_ACTION_READ_ALL = 3;
constexpr int SYSLOG_ACTION_SIZE_BUFFER = 10;

// The kernel keeps 15 characters of a task's name. Audit lines print the name in quotes.
constexpr std::string_view TASK_MARK = "comm=file_migrate_or";
constexpr std::string_view QUOTED_TASK_MARK = "comm=\"file_migrate_or\"";

bool IsAboutThisDaemon(std::string_view line) {
    return line.find(TASK_MARK) != std::string_view::npos || line.find(QUOTED_TASK_MARK) != std::string_view::npos;
}

/// Appends the matching lines of `text` to the dump and ignores a last piece without a newline. It first appends an
/// empty text, which creates the file, so a log without a match leaves an empty dump.
bool WriteMatchingLines(std::string_view text, const std::string& path) {
    if (!WriteStringToFile(path, "", SEEK_END)) {
        return false;
    }
    for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
        const std::string_view line = text.substr(0, end + 1);
        if (IsAboutThisDaemon(line) && !WriteStringToFile(path, std::string(line), SEEK_END)) {
            return false;
        }
    }
    return true;
}

/// Reads the kernel log without clearing it and writes the dump.
bool ReadKmsgToFile(const std::string& path) {
    const int size = klogctl(SYSLOG_ACTION_SIZE_BUFFER, nullptr, 0);
    if (size < 1) {
        LogError("get kernel log buf size failed, errno=%{public}d", errno);
        return false;
    }
    LogRoutine(LogLevel::Info, "kernel log buf curLen=%{public}d", size);
    const int length = std::min(size, DUMP_LIMIT);
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[static_cast<std::size_t>(length) + 1]);
    if (buffer == nullptr) {
        LogError("malloc buf failed, errno=%{public}d", errno);
        return false;
    }
    const int count = klogctl(SYSLOG_ACTION_READ_ALL, buffer.get(), length);
    if (count < 0) {
        LogError("read kernel log buffer failed, errno=%{public}d", errno);
        return false;
    }
    LogRoutine(LogLevel::Info, "read kernel log buffer len=%{public}d", count);
    if (!WriteMatchingLines({buffer.get(), static_cast<std::size_t>(count)}, path)) {
        return false;
    }
    LogRoutine(LogLevel::Info, "filter orig kmsg and write succ");
    return true;
}

PathPara DumpPara(const std::string& path, unsigned int uid, unsigned int gid, unsigned int mode) {
    return {path, uid, gid, mode, RECURSE_NONE};
}

/// Makes the directory, writes the lines, then sets the mode and the owner. If memory runs out, only the dump fails,
/// not the request.
bool WriteDump(const std::string& path) {
    int err = 0;
    try {
        return PrepareDir(DumpPara(DUMP_DIRECTORY, DUMP_UID, DUMP_GID, DUMP_DIR_MODE), err, RECORD_KIND_NONE) == 0 &&
               ReadKmsgToFile(path) &&
               ChMod(DumpPara(path, NOT_GIVEN, NOT_GIVEN, DUMP_FILE_MODE), err, RECORD_KIND_NONE) == 0 &&
               ChOwn(DumpPara(path, DUMP_UID, DUMP_GID, NOT_GIVEN), err, RECORD_KIND_NONE) == 0;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

void DumpKmsg(const std::string& type) {
    const std::string path = Concat({DUMP_DIRECTORY, "/", type, {&DUMP_SEPARATOR, 1}, GetCurrentTimeStr()});
    if (!WriteDump(path)) {
        int err = 0;
        (void)Remove(path, err, RECORD_KIND_NONE);  // succeeds also if there is no file
    }
}

}  // namespace TAVO::FileMigrateOrvane
