// SELinux labels of files, as the installed policy prescribes them.
//
// May be called from any thread. Calls run side by side and always use the rules of the policy that is installed at
// their start. Below the path that a caller names, no link is followed and labels are set through descriptors, so
// nobody who changes a tree during a walk can make it label an object outside. libselinux reads the rules and looks up
// labels.
//
// It makes no difference whether the kernel has SELinux. Without an installed policy every call fails with EOPNOTSUPP.
// If the policy prescribes no label for a path, the call succeeds and changes nothing. If the kernel has SELinux, the
// same holds for a file system without labels. `errno` is never 0 after a failure. A link is labelled itself, and its
// target is not. A path that ends in a slash must be a directory (ENOTDIR).
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Gives one path the label that the policy prescribes for it.
/// @return 0; -1 with the cause in `errno`
[[nodiscard]] int Restorecon(const char* path);

/// Does the same for a path and everything below it, mounted file systems included. A failed entry is logged and does
/// not stop the walk. An entry that is removed during the walk is not a failure.
/// @param threads  how many threads the caller grants; one is used, because most of the time goes into look-ups, which
///                 libselinux makes one at a time
/// @return 0 if every entry succeeded; -1 with the cause of the last failure in `errno`: ENAMETOOLONG for a path of
///         PATH_MAX bytes or more, ELOOP for a directory that is mounted below itself
[[nodiscard]] int RestoreconRecurseParallel(const char* path, unsigned threads);

/// Gives one path the label that the policy prescribes for the directory that holds it.
/// @return 0; the negated error number, also in `errno`: -13 means that the kernel refused
[[nodiscard]] int RestoreconFromParentDir(const char* path);

}  // namespace TAVO::FileMigrateOrvane
