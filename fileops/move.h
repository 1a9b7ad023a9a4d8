// Moving. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Renames. Across file systems it copies, gives the whole copy the owner of the source's top entry, flushes the copy's
/// file system and removes the source. Across file systems, symbolic links and special files are lost; a warning says
/// how many. Files also lose their set-id bits. If the copy or the flush fails, the source stays, and so does what was
/// copied. After a successful copy `err` holds EXDEV or an earlier error; only the result says whether the move
/// succeeded.
[[nodiscard]] int Move(const std::string& src, const std::string& dst, int& err, int recordKind);

/// Move for a child of the directories that a request names: a link at `dst` is not followed.
[[nodiscard]] int MoveChild(const std::string& src, const std::string& dst, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
