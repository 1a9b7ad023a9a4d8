// Security labels. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Gives a path, with RECURSE_ALL also everything below it, the label that the policy prescribes. EINVAL for an unknown
/// option; option 0, which a request has that names none, is refused without a record.
[[nodiscard]] int RestoreCon(const std::string& path, const int& recurseOpt, int& err, int recordKind);

/// Gives a path the label that the policy prescribes for its parent directory.
[[nodiscard]] int RestoreConFromParent(const std::string& path, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
