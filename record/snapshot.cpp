#include "snapshot.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <bitset>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "concat.h"
#include "log.h"
#include "record_file.h"
#include "record_format.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

using namespace RecordKey;

struct FreeDeleter {
    void operator()(char* buffer) const { free(buffer); }
};
using MallocBuffer = std::unique_ptr<char, FreeDeleter>;

MallocBuffer Allocate(std::size_t size) {
    return MallocBuffer(static_cast<char*>(malloc(size)));
}

/// The fragment of a failed call: its head, errno and the end.
std::string Failed(std::string_view object, std::string_view step) {
    return Concat({object, step, std::to_string(errno), RecordKey::END});
}

/// Many records are about an object that does not exist or has no inode flags. The record says so, and the operator
/// need not read it in the journal once more for each part of the record.
LogMark MarkOf(int error) {
    const bool isUsual = error == ENOENT || error == ENOTDIR || error == ENOTTY;
    return {LogLevel::Error, isUsual ? LogKind::Routine : LogKind::Event};
}

std::string XattrFailure(const std::string& path) {
    return Failed(Concat({RecordKey::XATTR, path}), RecordKey::SNAPSHOT_ERRNO);
}

/// Sets `entry` to the attribute's fragment. The value is written as raw bytes up to its first NUL. `entry` keeps its
/// text if the value cannot be read. False if there is no memory for the value.
bool ReadValue(const char* key, std::size_t size, const std::string& path, std::string& entry) {
    const MallocBuffer value = Allocate(size + 1);
    if (value == nullptr) {
        LogInfo({"failed to allocate memory", "XattrVal"});
        return false;
    }
    const ssize_t length = getxattr(path.c_str(), key, value.get(), size);
    if (length < 1) {
        LogError({"%{public}s get val failed, errno=%{public}d", "XattrVal"}, path, errno);
        return true;
    }
    value.get()[length] = '\0';
    entry = Concat({XATTR, path, XATTR_KEY, key, XATTR_VALUE, value.get(), END});
    return true;
}

/// Opens the object that `place` refers to, if it is a regular file or a directory. Opening anything else can have an
/// effect: a pipe's writer continues, a tape is rewound. It opens through /proc because by now the path could lead to
/// such an object. On failure errno is ENOTTY, which asking an open object for its flags gives, or ENXIO for a socket,
/// which cannot be opened.
/// @param place  opened with O_PATH
UniqueFd OpenForFlags(const UniqueFd& place) {
    struct stat st {};
    if (!place || fstat(place.Get(), &st) != 0) {
        return UniqueFd();
    }
    if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
        errno = S_ISSOCK(st.st_mode) ? ENXIO : ENOTTY;
        return UniqueFd();
    }
    // O_NONBLOCK because the owner of a file may hold a lease on it.
    const std::string magic = "/proc/self/fd/" + std::to_string(place.Get());
    return UniqueFd(open(magic.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

/// Both halves of a capability set, the upper one first. Neither is padded.
std::string CapabilitySet(std::uint32_t upper, std::uint32_t lower) {
    return DecToHex(static_cast<int>(upper)) + DecToHex(static_cast<int>(lower));
}

}  // namespace

std::string GetStat(const std::string& path) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) {
        Log(MarkOf(errno), "lstat %{public}s failed, errno=%{public}d", path, errno);
        return Failed(Concat({STAT, path}), SNAPSHOT_ERRNO);
    }
    const std::array values = {std::to_string(st.st_dev),   std::to_string(st.st_ino),  std::to_string(st.st_mode),
                               std::to_string(st.st_nlink), std::to_string(st.st_uid),  std::to_string(st.st_gid),
                               std::to_string(st.st_rdev),  std::to_string(st.st_size), std::to_string(st.st_blksize),
                               std::to_string(st.st_blocks)};
    static_assert(values.size() == STAT_FIELDS.size());
    std::string text = Concat({STAT, path});
    for (std::size_t i = 0; i < values.size(); ++i) {
        text += Concat({STAT_FIELDS[i], values[i]});
    }
    return text += END;
}

std::string GetXattr(const std::string& path) {
    const ssize_t length = llistxattr(path.c_str(), nullptr, 0);
    if (length < 1) {
        Log(length == 0 ? LogMark(LogLevel::Error, LogKind::Routine) : MarkOf(errno),  // 0: no attributes
            "%{public}s determine buflen failed, buflen=%{public}ld, errno=%{public}d", path, length, errno);
        return XattrFailure(path);
    }
    const MallocBuffer keys = Allocate(static_cast<std::size_t>(length));
    if (keys == nullptr) {
        LogError("failed to allocate memory");
        return XattrFailure(path);
    }
    const ssize_t listed = llistxattr(path.c_str(), keys.get(), static_cast<std::size_t>(length));
    if (listed == -1) {
        LogError("%{public}s copy key to buffer failed, errno=%{public}d", path, errno);
        return XattrFailure(path);
    }
    return XattrVal(keys.get(), listed, path);
}

std::string XattrVal(char* keys, long length, const std::string& path) {
    std::string result;
    std::string entry;
    const char* key = keys;
    for (long remaining = length; remaining > 0;) {
        const ssize_t size = getxattr(path.c_str(), key, nullptr, 0);
        if (size > 0) {
            if (!ReadValue(key, static_cast<std::size_t>(size), path, entry)) {
                return XattrFailure(path);
            }
        } else if (size == 0) {
            LogRoutine(LogLevel::Info, "getxattr %{public}s no value", path);
            entry = Concat({XATTR, path, XATTR_KEY, key, XATTR_NO_VALUE, END});
        }
        // A key whose value cannot be read repeats the entry before it. Of two equal fragments, one may be such a key.
        result += entry;
        const auto step = static_cast<long>(strlen(key)) + 1;
        remaining -= step;
        key += step;
    }
    return result;
}

std::string GetInodeFlag(const std::string& path) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
        Log(MarkOf(errno), "%{public}s is not exist or invalid, errno=%{public}d.", path, errno);
        return Failed(path, FAILED_REALPATH);
    }
    const UniqueFd place(open(resolved, O_PATH | O_CLOEXEC));
    const UniqueFd fd = OpenForFlags(place);
    if (!fd && errno != ENOTTY) {
        LogError("Failed to open file:%{public}s, errno=%{public}d.", resolved, errno);
        return Failed(resolved, FAILED_OPEN);
    }
    std::uint32_t flags = 0;
    if (!fd || ioctl(fd.Get(), FS_IOC_GETFLAGS, &flags) < 0) {
        Log(MarkOf(errno), "Failed to get flag, errno=%{public}d.", errno);
        return Failed(resolved, FAILED_IOCTL);
    }
    return Concat({resolved, INODE_FLAGS, std::bitset<INODE_FLAG_DIGITS>(flags).to_string(), END});
}

std::string GetProcStat() {
    const uid_t euid = geteuid();
    const gid_t egid = getegid();
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, getpid()};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capget, &header, data) != 0) {
        LogError("capget failed, errno=%{public}d.", errno);
        return Failed("", FAILED_CAPGET);
    }
    return Concat({EUID, std::to_string(euid), EGID, std::to_string(egid),          //
                   EFFECTIVE, CapabilitySet(data[1].effective, data[0].effective),  //
                   PERMITTED, CapabilitySet(data[1].permitted, data[0].permitted),  //
                   INHERITABLE, CapabilitySet(data[1].inheritable, data[0].inheritable), PROCESS_END, END});
}

}  // namespace TAVO::FileMigrateOrvane
