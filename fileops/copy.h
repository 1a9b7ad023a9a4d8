// Copying. Symbolic links in the source are skipped, neither copied nor followed. Nothing is undone: what was copied
// before a failure stays. For `err` and `recordKind` see path_helpers.h.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Copies a file or a tree in one go, stopping at the first failure. An existing destination file is overwritten;
/// missing destination directories are created, but the destination's parent must exist. A file copied onto an
/// existing directory lands inside it.
[[nodiscard]] int DoCopy(const std::string& src, const std::string& dst, int& err, int recordKind);

/// DoCopy, and where that fails TryCopy. After a success of the second, `err` still holds the first one's error.
[[nodiscard]] int Copy(const std::string& src, const std::string& dst, int& err, int recordKind);

/// Copies entry by entry, going on past what fails. The destination of a directory must exist; directories below
/// are created with mode 0700. Entries that are neither regular files nor directories are left out silently, as
/// are those whose type their file system does not tell.
/// @return 0, or -1 if any entry failed
[[nodiscard]] int TryCopy(const std::string& src, const std::string& dst, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
