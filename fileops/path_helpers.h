// Small questions about paths: parent, existence, kind, listing, nearest existing ancestor. No state; may run on
// any thread.
//
// All operations of this folder share a convention: `err` receives an error number on failure and is never
// cleared; `recordKind` is passed on to the record of a failure (see record_file.h). Each failure is logged and
// recorded once, by the function that met it.
#pragma once

#include <string>

#include "string_list.h"

namespace TAVO::FileMigrateOrvane {

/// The parent directory as dirname(3) has it: "." for a bare name and for an empty path, "/" for "/".
[[nodiscard]] std::string DirName(const std::string& path);

/// 1 if the path exists, 0 if it does not (no error: `err` stays), -1 on any other failure. Links are followed:
/// one without a target does not exist.
[[nodiscard]] int IsPathExist(const std::string& path, int& err, int recordKind);

/// The same for `name` in the open directory `dirFd`. @param path its text for messages
[[nodiscard]] int IsPathExist(int dirFd, const char* name, const std::string& path, int& err, int recordKind);

/// 1 for a directory, 0 for anything else, -1 on failure. A link to a directory is none.
[[nodiscard]] int IsDir(const std::string& path, int& err, int recordKind);

/// The same for `name` in the open directory `dirFd`. @param path its text for messages
[[nodiscard]] int IsDir(int dirFd, const char* name, const std::string& path, int& err, int recordKind);

/// Lists one level of a directory in its own order, "." and ".." left out. `entries` is emptied first.
/// @param withType  adds ":1" to the name of a directory and ":0" to any other, by the type in the entry
/// @return 0, or -1 if the directory cannot be opened (an absent one is logged but not recorded)
[[nodiscard]] int ListDir(const std::string& path, StringList& entries, int& err, bool withType, int recordKind);

/// Finds the nearest existing ancestor, or the path itself. The caller passes `err` as 0.
/// @return 0, or -1 with `existedPath` as it was
[[nodiscard]] int GetExistedPath(const std::string& path, std::string& existedPath, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
