// The combined copy: a move by copying that gives everything it creates one owner and mode. For `err` and `recordKind`
// see path_helpers.h.
#pragma once

#include <string>

#include "path_para.h"

namespace TAVO::FileMigrateOrvane {

/// Copies a file or a tree to `dst` and removes the source entry by entry, even if a copy failed. If both paths are one
/// object (EEXIST) or the destination is inside the source (EINVAL), the request is refused and the source stays. Only
/// regular files and directories are copied. For a directory, `dst` must exist; directories below it are created. Files
/// also get the set-id bits of the mode.
[[nodiscard]] int CopyCombRecurse(const std::string& src, const std::string& dst, const PermPara& perm, int& err,
                                  int recordKind);

}  // namespace TAVO::FileMigrateOrvane
