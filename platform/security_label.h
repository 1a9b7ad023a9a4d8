// SELinux labels of files, as the installed policy prescribes them.
//
// May be called from any thread. Calls run side by side and always use the rules of the policy that is installed at
// their start. libselinux reads the rules and looks up labels; labels are set through descriptors. Whole trees are
// walked in fileops/label_walk.h.
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

/// Gives one path the label that the policy prescribes for the directory that holds it.
/// @return 0; the negated error number, also in `errno`: -13 means that the kernel refused
[[nodiscard]] int RestoreconFromParentDir(const char* path);

}  // namespace TAVO::FileMigrateOrvane
