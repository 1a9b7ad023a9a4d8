// Restoring the SELinux labels of a tree, as security_label.h does for one path. Below the path that the caller names,
// no link is followed and labels are set through descriptors, so nobody who changes the tree meanwhile can make the
// walk label an object outside.
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Gives a path and everything below it, mounted file systems included, the labels that the policy prescribes. A failed
/// entry is logged and does not stop the walk. An entry that is removed during the walk is not a failure.
/// @param threads  not used: the daemon's helpers take part as in any large tree
/// @return 0 if every entry succeeded; -1 with the cause of the last failure in `errno`: ENAMETOOLONG for a path of
///         PATH_MAX bytes or more, ELOOP for a directory that is mounted below itself
[[nodiscard]] int RestoreconRecurseParallel(const char* path, unsigned threads);

}  // namespace TAVO::FileMigrateOrvane
