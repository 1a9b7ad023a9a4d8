// Snapshots: the state of an object, or of the daemon, when an operation failed, as fragments of a record. Each
// fragment ends with ";". No function fails: it logs the failure and returns a fragment with the error number. The
// functions keep no state; any thread may call them.
//
// They go by path, and they read attribute values and inode flags through links. So the owner of a tree in which
// something fails can have the stat fields of any object recorded, and those of its attributes whose names an object of
// that owner has as well. Everybody who may read the record files can read them there.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// The lstat() fields, all decimal.
[[nodiscard]] std::string GetStat(const std::string& path);

/// One fragment for each extended attribute. An object without attributes gives the failure fragment.
[[nodiscard]] std::string GetXattr(const std::string& path);

/// The fragments for a list of attribute names.
/// @param keys    NUL-separated names, as llistxattr() gives them
/// @param length  bytes of `keys`
[[nodiscard]] std::string XattrVal(char* keys, long length, const std::string& path);

/// The inode flags (FS_IOC_GETFLAGS) as 32 binary digits. Follows links. Only regular files and directories are opened;
/// every other object gives the failure fragment. Needs /proc.
[[nodiscard]] std::string GetInodeFlag(const std::string& path);

/// The effective user and group and the capability sets of the daemon.
[[nodiscard]] std::string GetProcStat();

}  // namespace TAVO::FileMigrateOrvane
