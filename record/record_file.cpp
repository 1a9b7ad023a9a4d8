#include "record_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <iomanip>
#include <mutex>
#include <sstream>
#include <string_view>

#include "concat.h"
#include "log.h"
#include "move.h"
#include "path_helpers.h"
#include "space.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr mode_t RECORD_FILE_MODE = 0644;

std::mutex g_abFileMutex;  ///< held while a record of kind RECORD_KIND_AB is written

/// A record that cannot be written is lost. The log has reported it, and the caller can do nothing about it.
void Append(const char* path, const std::string& content) {
    (void)WriteStringToFile(path, content, SEEK_END);
}

/// Whether the main record file, which exists, has room for `content`: its allocated KB plus those of the text.
bool HasRoomFor(const std::string& content) {
    int err = 0;
    const int used = GetUsedSpaceInKB(RECORD_FILE_AB, err, RECORD_KIND_NONE);
    return used + static_cast<int>(content.length()) / 1024 < ROTATION_LIMIT_KB;
}

/// The local time as 14 digits.
std::string TimeStr(std::time_t time) {
    std::tm local{};
    tzset();  // localtime_r() does not notice a change of the time zone by itself
    localtime_r(&time, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%Y%m%d%H%M%S");
    return text.str();
}

std::time_t Now() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

/// "NAME_YYYYMMDDhhmmss.txt" for the main record file "NAME.txt".
std::string RotatedName(std::time_t time) {
    std::string_view name = RECORD_FILE_AB;
    name.remove_suffix(RECORD_FILE_SUFFIX.size());
    return Concat({name, {&ROTATION_SEPARATOR, 1}, TimeStr(time), RECORD_FILE_SUFFIX});
}

/// Renames the main record file to the first free name from now on. A second rotation within a second, or one after the
/// clock was set back, takes a later second, so that no rotated file is replaced and their names sort in the order in
/// which they were written.
bool Rotate() {
    static std::time_t last = 0;  // guarded by g_abFileMutex
    std::time_t time = std::max(Now(), last + 1);
    std::string name = RotatedName(time);
    for (struct stat st{}; lstat(name.c_str(), &st) == 0; name = RotatedName(++time)) {
    }
    last = time;
    int err = 0;
    return Move(RECORD_FILE_AB, name, err, RECORD_KIND_NONE) == 0;
}

/// Nothing that is called while the mutex is held may record with kind AB; all calls here pass NONE.
void WriteAbRecord(const std::string& content) {
    const std::lock_guard lock(g_abFileMutex);
    int err = 0;
    if (IsPathExist(RECORD_FILE_AB, err, RECORD_KIND_NONE) == 1 && !HasRoomFor(content)) {
        LogInfo({"%{public}s filesize out of threshold ", "WriteRecordErrToFile"}, RECORD_FILE_AB);
        if (!Rotate()) {
            return;
        }
    }
    Append(RECORD_FILE_AB, content);
}

}  // namespace

void WriteRecordErrToFile(const std::string& content, int recordKind) {
    switch (recordKind) {
        case RECORD_KIND_UPDATE:
            Append(RECORD_FILE_UPDATE, content);
            break;
        case RECORD_KIND_ZELTO:
            Append(RECORD_FILE_ZELTO, content);
            break;
        case RECORD_KIND_AB:
            WriteAbRecord(content);
            break;
        default:
            break;
    }
}

bool WriteStringToFile(const std::string& path, const std::string& content, long whence) {
    // Without O_CLOEXEC, which every other descriptor has; the daemon runs no other program. O_NOFOLLOW because users
    // other than root may create names in the directory of the kernel-log dumps.
    const UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW, RECORD_FILE_MODE));
    if (!fd) {
        LogError("open %{public}s failed, errno: %{public}d.", path, errno);
        return false;
    }
    if (lseek(fd.Get(), 0, static_cast<int>(whence)) < 0) {
        LogError("lseek %{public}s failed, errno: %{public}d.", path, errno);
        return false;
    }
    const ssize_t written = write(fd.Get(), content.data(), content.length());
    if (written < 0) {
        LogError("write %{public}s failed, errno: %{public}d.", path, errno);
        return false;
    }
    if (static_cast<std::size_t>(written) != content.length()) {
        LogError("write return len %{public}ld, not equal to content length %{public}lu.", written, content.length());
        return false;
    }
    if (fsync(fd.Get()) < 0) {
        LogError("fsync %{public}s failed, errno: %{public}d.", path, errno);
        return false;
    }
    return true;
}

std::string GetCurrentTimeStr() {
    return TimeStr(Now());
}

std::string DecToHex(int value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

}  // namespace TAVO::FileMigrateOrvane
