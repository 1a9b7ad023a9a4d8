// Limits what a group, and the users in an access control list, may do with a new object.
//
// A copy does not get the list of its source, and does not keep a list that it inherited. If a file has a list, the
// group bits of its mode are the list's mask. A copy with these bits would let the owning group do what only a named
// user could do with the source.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>

namespace TAVO::FileMigrateOrvane {

/// Remembers a file system without lists, so it belongs to one request, whose threads may use it at the same time.
class AccessAcl {
public:
    /// The permission bits that a copy of `fd` may get: those of its mode, with the group bits limited to what the
    /// owning group's entry and the mask allow.
    /// @return 0 or an error number
    [[nodiscard]] int LimitMode(int fd, const struct stat& st, mode_t& mode);

private:
    std::atomic<dev_t> without{0};  ///< the last file system seen that has no lists; no file system has the number 0
};

/// Whether an open object has an access list.
[[nodiscard]] bool HasAccessAcl(int fd);

/// The mode that an open object may get while it has its present group. A directory with the set-group-ID bit
/// gives its own group to what is created in it. Unless the group is `group` or the daemon's, its members may do only
/// what all other users may do.
[[nodiscard]] mode_t LimitToGroup(mode_t mode, int fd, gid_t group);

/// Removes the access list of a copy, which it inherited or had before: a list names users that the source may not let
/// in. @return 0 or an error number
[[nodiscard]] int DropAccessAcl(int fd);

/// Removes the lists that a new directory inherited, so that nothing made in it inherits one.
/// @return 0 or an error number
[[nodiscard]] int DropInheritedAcls(int directory);

}  // namespace TAVO::FileMigrateOrvane
