// The copy of one regular file. A new file is created exclusively and private, and gets its owner and mode when it is
// filled. An existing file is overwritten in place only if nobody can reach more of the copy through the old file than
// through the new one. Otherwise a new file replaces it.
#pragma once

#include "copy_job.h"

namespace TAVO::FileMigrateOrvane {

/// Copies a file, also into an existing directory under its own name.
/// @param result  of this file only
/// @param made    the object at `pair.dst`: the file that was filled, or the directory
/// @return 0 or an error number
[[nodiscard]] int CopyFile(const CopyPair& pair, CopyJob& job, const Report& report, CopyResult& result,
                           UniqueFd& made);

}  // namespace TAVO::FileMigrateOrvane
