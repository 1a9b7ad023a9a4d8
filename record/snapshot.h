// Snapshots: what an object and the daemon looked like when an operation failed, as text fragments of a record.
// Each fragment ends with ";". None of the functions fails: a failure is logged and becomes a fragment that
// carries the error number. They keep no state and may run on any thread.
//
// They go by path, and the values of attributes and the flags are those of what a link leads to: the owner of a tree in
// which something fails can have the stat fields of any object recorded, and the values of those of its attributes
// whose names an object of his own has too. Whoever may read the record files reads them there.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// The lstat() fields, all decimal.
[[nodiscard]] std::string GetStat(const std::string& path);

/// One fragment for each extended attribute. An object without any gives the failure fragment.
[[nodiscard]] std::string GetXattr(const std::string& path);

/// The fragments for a list of attribute names.
/// @param keys    NUL-separated names, as llistxattr() gives them
/// @param length  bytes of `keys`
[[nodiscard]] std::string XattrVal(char* keys, long length, const std::string& path);

/// The inode flags (FS_IOC_GETFLAGS) as 32 binary digits. Links are followed. A pipe, a device or a socket has none and
/// is never opened. Needs /proc.
[[nodiscard]] std::string GetInodeFlag(const std::string& path);

/// The effective user and group and the capability sets of the daemon. The two halves of a set are joined
/// unpadded: readers depend on that text, though it is ambiguous.
[[nodiscard]] std::string GetProcStat();

}  // namespace TAVO::FileMigrateOrvane
