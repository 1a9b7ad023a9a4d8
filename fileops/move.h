// Moving. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Renames. EXDEV, for which there is another way, is logged but not recorded.
[[nodiscard]] int DoMove(const std::string& src, const std::string& dst, int& err, int recordKind);

/// Renames, or across file systems copies, gives the whole copy the owner of the source's top entry and removes
/// the source. Symbolic links and special files are not carried across file systems. A failure half-way leaves
/// the partial copy and the source. After a successful copy `err` is EXDEV or an error that the copy got over:
/// the result tells.
[[nodiscard]] int Move(const std::string& src, const std::string& dst, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
