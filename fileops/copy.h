// Copying. Symbolic links in the source are skipped: they are neither copied nor followed. Nothing is undone: what was
// copied before a failure stays. copy_engine.h says which objects may be at the destination. For `err` and `recordKind`
// see path_helpers.h.
#pragma once

#include <string>

#include "copy_engine.h"
#include "failures.h"
#include "top_path.h"

namespace TAVO::FileMigrateOrvane {

/// Calls DoCopy, and TryCopy if that fails. If TryCopy succeeds, `err` still holds the error of DoCopy.
[[nodiscard]] int Copy(const std::string& src, const std::string& dst, int& err, int recordKind);
/// Copy for a child of the directories that a request names: a link at `dst` is not followed.
[[nodiscard]] int CopyChild(const std::string& src, const std::string& dst, int& err, int recordKind);
/// Copy for a caller that uses the result.
[[nodiscard]] int CopyRequest(const CopyPair& top, CopyJob& job, const Report& report, CopyResult& result);

/// Copies a file or a tree in one go, stopping at the first failure.
[[nodiscard]] int DoCopy(const CopyPair& pair, CopyJob& job, const Report& report, CopyResult& result);

/// Checks the slashes at the end of a request's paths: ENOTDIR if such a path is not a directory, EISDIR if it would be
/// a new file. @return 0 if nothing is wrong
[[nodiscard]] int CheckSlashes(const TopPath& src, const TopPath& dst);

}  // namespace TAVO::FileMigrateOrvane
