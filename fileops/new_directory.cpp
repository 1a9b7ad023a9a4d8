#include "new_directory.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace TAVO::FileMigrateOrvane {
namespace {

/// The bits that distinguish NEW_DIRECTORY_MODE from other modes under any umask.
constexpr mode_t MARK_BITS = S_ISVTX | S_IRWXG | S_IRWXO;

std::mutex g_claimsLock;
std::set<std::pair<dev_t, ino_t>> g_claims;  ///< guarded by g_claimsLock

/// Whether the file system itself decides which owner or mode its objects have. They then prove nothing, and setting
/// them gives nothing away.
bool DecidesOwnerAndMode(int fd) {
    constexpr std::int64_t exfat = 0x2011BAB0, ntfs3 = 0x7366746E, cifs = 0xFF534D42, smb2 = 0xFE534D42;
    constexpr std::int64_t types[] = {MSDOS_SUPER_MAGIC, exfat, ntfs3, FUSE_SUPER_MAGIC,
                                      NFS_SUPER_MAGIC,   cifs,  smb2,  V9FS_MAGIC};
    struct statfs fs {};
    return fstatfs(fd, &fs) == 0 &&
           std::find(std::begin(types), std::end(types), fs.f_type & 0xFFFFFFFF) != std::end(types);
}

/// Whether a directory is empty. Calls getdents directly, because a stream would cost four calls and memory.
bool IsEmpty(int fd) {
    struct Record {  // as the kernel writes it, see getdents(2)
        std::uint64_t inode;
        std::int64_t offset;
        std::uint16_t length;
        unsigned char type;
        char name[5];
    };
    alignas(Record) std::array<char, 1024> buffer{};
    const long size = syscall(SYS_getdents64, fd, buffer.data(), buffer.size());
    for (long at = 0; at < size;) {
        Record record{};
        std::memcpy(&record, buffer.data() + at, sizeof(record));
        if (std::strcmp(record.name, ".") != 0 && std::strcmp(record.name, "..") != 0) {
            return false;
        }
        at += record.length;
    }
    return size > 0;
}

/// Whether an inode was created at `start` or later; false if the file system does not store the time of creation.
bool IsBornSince(int fd, const timespec& start) {
    struct statx st {};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_BTIME, &st) != 0 || (st.stx_mask & STATX_BTIME) == 0) {
        return false;
    }
    return st.stx_btime.tv_sec > start.tv_sec ||
           (st.stx_btime.tv_sec == start.tv_sec && std::int64_t{st.stx_btime.tv_nsec} >= start.tv_nsec);
}

}  // namespace

timespec InodeClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

NewDirectory::~NewDirectory() {
    if (claimed.second != 0) {
        const std::lock_guard lock(g_claimsLock);
        g_claims.erase(claimed);
    }
}

int NewDirectory::Open(const Entry& entry, const std::optional<timespec>& start) {
    const std::string_view given = entry.name;
    const std::string name(given.substr(0, given.find_last_not_of('/') + 1));  // "name/" would follow a link
    fd = UniqueFd(openat(entry.dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        return errno;
    }
    const int error = Check(start);
    if (error != 0) {
        fd = UniqueFd();
    }
    return error;
}

/// Claims the open directory before checking it, so that the result of the checks stays true.
int NewDirectory::Check(const std::optional<timespec>& start) {
    struct stat st {};
    if (fstat(fd.Get(), &st) != 0) {
        return errno;
    }
    const std::pair key(st.st_dev, st.st_ino);
    {
        const std::lock_guard lock(g_claimsLock);
        if (!g_claims.insert(key).second) {
            return EEXIST;
        }
    }
    claimed = key;
    if (fstat(fd.Get(), &st) != 0) {
        return errno;
    }
    const bool isMarked = st.st_uid == geteuid() && (st.st_mode & MARK_BITS) == S_ISVTX;
    inherited = st.st_mode & S_ISGID;
    group = st.st_gid;
    if (!isMarked && !DecidesOwnerAndMode(fd.Get())) {
        return EEXIST;
    }
    return (start && IsBornSince(fd.Get(), *start)) || IsEmpty(fd.Get()) ? 0 : EEXIST;
}

}  // namespace TAVO::FileMigrateOrvane
