// Security labels. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Gives a path the label that the policy prescribes, with RECURSE_ALL also everything below it. EINVAL for an unknown
/// option. Option 0, which means that the request does not set one, is refused without a record.
[[nodiscard]] int RestoreCon(const std::string& path, const int& recurseOpt, int& err, int recordKind);

/// Gives a path the label that the policy prescribes for its parent directory.
[[nodiscard]] int RestoreConFromParent(const std::string& path, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
