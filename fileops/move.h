// Moving. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Renames. Across file systems it copies, gives the whole copy the owner of the source's top entry, flushes the copy's
/// file system and removes the source. Symbolic links and special files are not carried across file systems; a warning
/// says how many. Set-id bits of files are not carried either. A failure half-way, also of the flush, leaves the source
/// and the copy as far as it got. After a successful copy `err` holds EXDEV or an error that was overcome; only the
/// result says whether the move succeeded.
[[nodiscard]] int Move(const std::string& src, const std::string& dst, int& err, int recordKind);

/// Move for a child of the directories that a request names: a link at `dst` is not followed.
[[nodiscard]] int MoveChild(const std::string& src, const std::string& dst, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
