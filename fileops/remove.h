// Removing. Links are removed, never followed. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

#include "directory_stream.h"

namespace TAVO::FileMigrateOrvane {

/// Unlinks `name` in the open directory `dirFd`. @param path its text for messages
[[nodiscard]] int DoUnlink(int dirFd, const char* name, const std::string& path, int& err, int recordKind);

/// Removes a path and all below it, stopping at the first failure. A path that does not exist succeeds.
[[nodiscard]] int Remove(const std::string& path, int& err, int recordKind);

/// The same for an entry of an open directory.
[[nodiscard]] int DoRemove(const Entry& entry, int& err, int recordKind);
/// The same for a directory that is open. Another one that bears its name by now loses nothing that it holds.
[[nodiscard]] int DoRemove(DirectoryStream stream, const Entry& entry, int& err, int recordKind);

/// Logs and records that a removal failed with an error number, and hands that out. @return -1
[[nodiscard]] int RemoveFailed(const std::string& path, int error, int& err, int recordKind);

/// Removes a path and all below it, depth first, going on past what cannot be removed. 0, or -1 if anything
/// failed, also for a path that does not exist. A directory that only stays because something below it did is not
/// logged or recorded where its path is longer than PATH_MAX.
[[nodiscard]] int TryRemove(const std::string& path, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
