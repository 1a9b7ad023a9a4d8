// Removing. Links are removed, never followed. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

#include "directory_stream.h"
#include "failures.h"

namespace TAVO::FileMigrateOrvane {

[[nodiscard]] int DoUnlink(const Entry& entry, const Report& report);

/// Removes a path and everything below it, stopping at the first failure. A path that does not exist succeeds.
[[nodiscard]] int Remove(const std::string& path, int& err, int recordKind);
/// The same for an entry of an open directory.
[[nodiscard]] int RemoveEntry(const Entry& entry, const Report& report);
/// The same for a directory that is open. If another one has taken its name, that one loses nothing that it holds.
[[nodiscard]] int RemoveOpen(DirectoryStream stream, const Entry& entry, const Report& report);

/// Removes a path and everything below it, depth first, going on past what cannot be removed. -1 if anything failed,
/// also for a path that does not exist. A directory that stays only because something below it did is not logged or
/// recorded if its path is longer than PATH_MAX.
[[nodiscard]] int TryRemove(const std::string& path, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
