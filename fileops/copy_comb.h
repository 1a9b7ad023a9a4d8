// The combined copy: a move by copying that gives everything it creates one owner and mode. For `err` and `recordKind`
// see path_helpers.h.
#pragma once

#include <string>

#include "path_para.h"

namespace TAVO::FileMigrateOrvane {

/// Carries a file or a tree to `dst` and removes the source as it goes, copied or not: it unlinks a file and removes a
/// directory even if copies failed. A request that names one object twice, or a destination inside its source, is
/// refused and keeps the source (EEXIST, EINVAL). Only regular files and directories are carried. For a directory `dst`
/// must exist; directories below are created. Files get a set-id bit of the mode too.
[[nodiscard]] int CopyCombRecurse(const std::string& src, const std::string& dst, const PermPara& perm, int& err,
                                  int recordKind);

}  // namespace TAVO::FileMigrateOrvane
