// Moving. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Renames. EXDEV, for which there is another way, is logged but not recorded.
[[nodiscard]] int DoMove(const std::string& src, const std::string& dst, int& err, int recordKind);

/// Renames, or across file systems copies, gives the whole copy the owner of the source's top entry, flushes its file
/// system and removes the source. Symbolic links and special files are not carried across file systems; a warning
/// tells how many. Set-id bits of files are not carried either. A failure half-way, that of the flush included, leaves
/// the copy as far as it got and the source. After a successful copy `err` is EXDEV or an error that the copy got over:
/// the result tells.
[[nodiscard]] int Move(const std::string& src, const std::string& dst, int& err, int recordKind);

/// Move for a child of the directories that a request names: a link at `dst` is not followed.
[[nodiscard]] int MoveChild(const std::string& src, const std::string& dst, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
