// Space, measured in allocated blocks. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// KB that a tree occupies: the top object, every directory and every other object, once for each name, without
/// following links. Never negative and never a failure: objects that could not be counted are missing from the sum, and
/// only `err` shows this. The sum of 512-byte blocks wraps at 32 bits.
[[nodiscard]] int GetUsedSpaceInKB(const std::string& path, int& err, int recordKind);

/// KB of the largest object in a tree that is not a directory (the low 32 bits of its blocks), or -1 if any part of the
/// walk failed.
[[nodiscard]] int GetMaxSizeInKB(const std::string& path, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
