#include "record_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <iomanip>
#include <mutex>
#include <sstream>

#include "log.h"
#include "move.h"
#include "path_helpers.h"
#include "space.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

const std::string kUpdateFile = "/data/update/migrate/file_migrate_bi.txt";
const std::string kZeltoFile = "/data/zelto/update/migrate/file_migrate_bi.txt";
const std::string kAbFile = "/data/zelto/update/migrate/file_migrate_ab.txt";
const std::string kRotatedPrefix = "/data/zelto/update/migrate/file_migrate_ab_";
const std::string kRotatedSuffix = ".txt";
std::mutex g_abFileMutex;

constexpr int ROTATION_LIMIT_KB = 256;
constexpr mode_t RECORD_FILE_MODE = 0644;

/// A record that cannot be written is lost: the log has told, and there is nobody else to tell.
void Append(const std::string& path, const std::string& content) {
    (void)WriteStringToFile(path, content, SEEK_END);
}

/// Whether the main record file, which exists, still takes `content`: its allocated KB plus those of the text.
bool HasRoomFor(const std::string& content) {
    int err = 0;
    const int used = GetUsedSpaceInKB(kAbFile, err, RECORD_KIND_NONE);
    return used + static_cast<int>(content.length()) / 1024 < ROTATION_LIMIT_KB;
}

/// Two rotations within one second take the same name: the second replaces the first.
bool Rotate() {
    int err = 0;
    return Move(kAbFile, kRotatedPrefix + GetCurrentTimeStr() + kRotatedSuffix, err, RECORD_KIND_NONE) == 0;
}

/// Nothing called while the mutex is held may record with kind AB: all of it passes NONE.
void WriteAbRecord(const std::string& content) {
    const std::lock_guard lock(g_abFileMutex);
    int err = 0;
    if (IsPathExist(kAbFile, err, RECORD_KIND_NONE) == 1 && !HasRoomFor(content)) {
        LogInfo({"%{public}s filesize out of threshold ", "WriteRecordErrToFile"}, kAbFile);
        if (!Rotate()) {
            return;
        }
    }
    Append(kAbFile, content);
}

}  // namespace

void WriteRecordErrToFile(const std::string& content, int recordKind) {
    switch (recordKind) {
        case RECORD_KIND_UPDATE:
            Append(kUpdateFile, content);
            break;
        case RECORD_KIND_ZELTO:
            Append(kZeltoFile, content);
            break;
        case RECORD_KIND_AB:
            WriteAbRecord(content);
            break;
        default:
            break;
    }
}

bool WriteStringToFile(const std::string& path, const std::string& content, long whence) {
    // No O_CLOEXEC, which every other descriptor has: the daemon runs no other program. O_NOFOLLOW: others than root
    // may create names where the kernel-log dumps lie.
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
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    tzset();  // localtime_r() alone does not notice a change of the time zone
    localtime_r(&now, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%Y%m%d%H%M%S");
    return text.str();
}

std::string DecToHex(int value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

}  // namespace TAVO::FileMigrateOrvane
