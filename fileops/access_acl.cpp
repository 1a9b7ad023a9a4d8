#include "access_acl.h"

#include <endian.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr mode_t MODE_BITS = 07777;
constexpr unsigned int GROUP_SHIFT = 3;

constexpr const char* ACCESS_LIST = "system.posix_acl_access";
constexpr const char* DEFAULT_LIST = "system.posix_acl_default";

/// Room for a list of 511 entries, more than a block of ext4 holds. The group bits of a longer one are dropped.
using Buffer = std::array<char, 4096>;

/// What the owning group may do: its entry, limited by the mask. @return permission bits of one class
mode_t OwningGroupOf(const Buffer& buffer, std::size_t size) {
    mode_t group = 0;
    mode_t mask = ACL_READ | ACL_WRITE | ACL_EXECUTE;
    posix_acl_xattr_entry entry{};
    for (std::size_t at = sizeof(posix_acl_xattr_header); at + sizeof(entry) <= size; at += sizeof(entry)) {
        std::memcpy(&entry, buffer.data() + at, sizeof(entry));
        const mode_t permissions = le16toh(entry.e_perm);
        if (le16toh(entry.e_tag) == ACL_GROUP_OBJ) {
            group = permissions;
        } else if (le16toh(entry.e_tag) == ACL_MASK) {
            mask = permissions;
        }
    }
    return group & mask;
}

}  // namespace

[[gnu::noinline]] int AccessAcl::LimitMode(int fd, const struct stat& st, mode_t& mode) {
    mode = st.st_mode & MODE_BITS;
    if ((mode & S_IRWXG) == 0 || without == st.st_dev) {
        return 0;
    }
    Buffer buffer;
    const ssize_t size = fgetxattr(fd, ACCESS_LIST, buffer.data(), buffer.size());
    if (size >= 0) {
        mode &= ~mode_t{S_IRWXG} | (OwningGroupOf(buffer, static_cast<std::size_t>(size)) << GROUP_SHIFT);
        return 0;
    }
    if (errno == EOPNOTSUPP) {
        without = st.st_dev;
    }
    if (errno == ERANGE) {
        mode &= ~mode_t{S_IRWXG};
        return 0;
    }
    return errno == EOPNOTSUPP || errno == ENODATA ? 0 : errno;
}

bool HasAccessAcl(int fd) {
    return fgetxattr(fd, ACCESS_LIST, nullptr, 0) > 0;
}

[[gnu::noinline]] mode_t LimitToGroup(mode_t mode, int fd, gid_t group) {
    const mode_t limited = mode & (~mode_t{S_IRWXG} | ((mode & S_IRWXO) << GROUP_SHIFT));
    struct stat st {};
    const bool isMeant = limited == mode || (fstat(fd, &st) == 0 && (st.st_gid == group || st.st_gid == getegid()));
    return isMeant ? mode : limited;
}

int DropAccessAcl(int fd) {
    // Most files have no list. Removing none takes longer than looking for it, because it writes to the journal.
    return !HasAccessAcl(fd) || fremovexattr(fd, ACCESS_LIST) == 0 || errno == ENODATA || errno == EOPNOTSUPP ? 0
                                                                                                              : errno;
}

int DropInheritedAcls(int directory) {
    if (fremovexattr(directory, DEFAULT_LIST) == 0) {
        return DropAccessAcl(directory);
    }
    return errno == ENODATA || errno == EOPNOTSUPP ? 0 : errno;
}

}  // namespace TAVO::FileMigrateOrvane
