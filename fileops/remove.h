// Removing. Links are removed, never followed. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "directory_stream.h"
#include "failures.h"
#include "source_watch.h"

namespace TAVO::FileMigrateOrvane {

/// What a removal after a copy must not remove.
struct RemovalGuard {
    SourceWatch& watch;  ///< objects that have changed since they were copied stay (ESTALE)
    /// Directories that could not be removed, with the error. They are not tried again with each directory above them.
    std::map<std::pair<dev_t, ino_t>, int> failed{};
};

/// @param guard  null for a removal that follows no copy
[[nodiscard]] int DoUnlink(const Entry& entry, RemovalGuard* guard, const Report& report);

/// Removes a path and everything below it, stopping at the first failure. A path that does not exist succeeds.
[[nodiscard]] int Remove(const std::string& path, int& err, int recordKind);
/// The same for an entry of an open directory. @param guard  as for DoUnlink()
[[nodiscard]] int RemoveEntry(const Entry& entry, RemovalGuard* guard, const Report& report);
/// The same for an open directory. If another directory has taken its name, the contents of that one stay.
/// @return 0 or an error number, which is not reported yet
[[nodiscard]] int EmptyAndRemove(DirectoryStream& stream, const Entry& entry, RemovalGuard* guard);
/// Logs the success of a removal or reports its failure. @return `error`
int FinishRemove(int error, const std::string& path, const Report& report);

/// Removes a path and everything below it, depth first, and continues after a failure. -1 if anything failed or if the
/// path does not exist. If a directory stays only because something below it failed, and its path is longer than
/// PATH_MAX, its own failure is not reported.
[[nodiscard]] int TryRemove(const std::string& path, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
