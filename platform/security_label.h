// SELinux labels of files, as the installed policy prescribes them.
//
// May be called from any thread. Calls run side by side and always use the rules of the policy that is installed at
// their start. Below the path that a caller names no link is followed, and labels are set through descriptors, so that
// nobody who changes a tree meanwhile gets an object outside labelled. libselinux reads the rules and looks labels up.
//
// It makes no difference whether the kernel has SELinux. Without an installed policy every call fails with EOPNOTSUPP.
// A path for which the policy prescribes no label is left alone with success. So is, if the kernel has SELinux, a file
// system that holds no labels. `errno` is never 0 after a failure. A link is labelled itself, its target is not; a
// slash at the end of a path demands a directory (ENOTDIR).
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Gives one path the label that the policy prescribes for it.
/// @return 0; -1 with the cause in `errno`
[[nodiscard]] int Restorecon(const char* path);

/// Does the same for a path and everything below it, mounted file systems included. A failed entry is logged and does
/// not stop the walk. An entry that vanishes meanwhile is no failure.
/// @param threads  how many threads the caller grants; one is used, because most of the time goes into look-ups, which
///                 libselinux makes one at a time
/// @return 0 if every entry succeeded; -1 with the cause of the last failure in `errno`: ENAMETOOLONG for a path from
///         PATH_MAX on, ELOOP for a directory that is mounted below itself
[[nodiscard]] int RestoreconRecurseParallel(const char* path, unsigned threads);

/// Gives one path the label that the policy prescribes for the directory that holds it.
/// @return 0; the negated error number, also in `errno`: -13 is the kernel's refusal
[[nodiscard]] int RestoreconFromParentDir(const char* path);

}  // namespace TAVO::FileMigrateOrvane
