// SELinux labels of files, as the installed policy prescribes them.
//
// May be called from any thread. The rules are read at the first call and again when the policy's files have
// changed. Calls run side by side, with two exceptions: reading the rules waits for the calls under way, and
// RestoreconRecurseParallel runs one walk at a time. The library's own messages go to the log.
//
// Whether the kernel has SELinux makes no difference; whether a policy is installed does: without one every call
// fails with EOPNOTSUPP. A path for which the policy prescribes no label succeeds and is left alone. `errno` is
// never 0 after a failure. A symbolic link is labelled itself, its target is not, unless the path ends in a slash.
#pragma once

namespace TAVO::FileMigrateOrvane {

/// Gives one path the label that the policy prescribes for it.
/// @return 0; -1 with the cause in `errno`
[[nodiscard]] int Restorecon(const char* path);

/// Does the same for a path and everything below it. A failed entry does not stop the walk.
/// @param threads  the most threads that walk the tree; there are no more of them than processors
/// @return 0 when every entry succeeded; -1 with the cause of the last failure in `errno`
[[nodiscard]] int RestoreconRecurseParallel(const char* path, unsigned threads);

/// Gives one path the label that the policy prescribes for its parent directory (the path's text without its last
/// name, resolved).
/// @return 0; the negated error number, also in `errno`: -13 is the kernel's refusal
[[nodiscard]] int RestoreconFromParentDir(const char* path);

}  // namespace TAVO::FileMigrateOrvane
