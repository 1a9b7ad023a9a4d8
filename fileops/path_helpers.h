// Queries on paths: parent, existence, kind, listing, nearest existing ancestor. No state; may run on any thread.
//
// All operations of this folder share a convention: they return 0 or -1 unless they say otherwise, `err` receives an
// error number on failure and is never cleared, and `recordKind` chooses the file for the record of a failure (see
// record_file.h). The function in which a failure occurs logs and records it, once.
#pragma once

#include <cerrno>
#include <string>

#include "entry.h"
#include "failures.h"
#include "string_list.h"

namespace TAVO::FileMigrateOrvane {

/// Whether an error says that there is no such object.
[[nodiscard]] inline bool IsNotFound(int error) {
    return error == ENOENT || error == ENOTDIR;
}

/// The parent directory as dirname(3) computes it: "." for a bare name and for an empty path, "/" for "/".
[[nodiscard]] std::string DirName(const std::string& path);

/// 1 if the path exists, 0 if it does not (this is not an error, and `err` stays), -1 on any other failure. Links are
/// followed: a dangling link does not exist.
[[nodiscard]] int IsPathExist(const std::string& path, int& err, int recordKind);
/// The same for an entry of an open directory.
[[nodiscard]] int IsPathExist(const Entry& entry, const Report& report);

/// 1 for a directory, 0 for anything else, -1 on failure. A link to a directory is not a directory.
[[nodiscard]] int IsDir(const std::string& path, int& err, int recordKind);
/// The same for an entry of an open directory.
[[nodiscard]] int IsDir(const Entry& entry, const Report& report);

/// Whether a walk has to open the entry as a directory. Also true if its type cannot be looked up, because opening it
/// then fails with the reason. The file system is asked only if the type is not known yet. If an entry has been
/// replaced since it was listed, the next call on it fails.
/// @param report  for a failed lookup
[[nodiscard]] bool TakeForDirectory(const Entry& entry, const Report& report);

/// Lists one level of a directory in its own order, without "." and "..". `entries` is emptied first.
/// @param withType  adds ":1" to the name of a directory and ":0" to any other, by the type in the directory entry
/// @return 0, or -1 if the directory cannot be opened (a missing one is logged but not recorded)
[[nodiscard]] int ListDir(const std::string& path, StringList& entries, int& err, bool withType, int recordKind);

/// Finds the nearest existing ancestor, or the path itself. The caller passes `err` as 0.
/// @return 0, or -1 with `existedPath` unchanged
[[nodiscard]] int GetExistedPath(const std::string& path, std::string& existedPath, int& err, int recordKind);

/// Checks whether `dst` is the directory `src` (EEXIST), or is or would be inside it (EINVAL), under any name.
/// @return 0 if neither
[[nodiscard]] int FindOntoItself(const std::string& src, const std::string& dst);

}  // namespace TAVO::FileMigrateOrvane
