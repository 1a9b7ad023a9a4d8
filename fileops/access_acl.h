// Access control lists of the source. A copy does not carry them. In the mode of a file that has one, the group bits
// are the list's mask; given to the copy, they would let the owning group do what only a named user could.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>

namespace TAVO::FileMigrateOrvane {

/// Remembers which file system has no lists, so it belongs to one request.
class AccessAcl {
public:
    /// The permission bits that a copy of `fd` may get: those of its mode, with the group bits limited to what the
    /// owning group's entry and the mask allow.
    /// @return 0 or an error number
    [[nodiscard]] int LimitMode(int fd, const struct stat& st, mode_t& mode);

private:
    std::optional<dev_t> without;  ///< the last file system seen that has no lists
};

/// Whether new objects in a directory inherit a list.
[[nodiscard]] bool HasDefaultAcl(int directory);

}  // namespace TAVO::FileMigrateOrvane
