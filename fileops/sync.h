// Flushes a copy to its disk. This must be done before its source is removed, because a power cut must not lose both.
#pragma once

#include <string>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// Writes the file system that holds an open object to its disk. The descriptor should be as old as the copy, because
/// the call also reports write-back errors since it was opened.
/// @param path  the object's path, used instead of a descriptor that was opened with O_PATH
/// @return 0 or an error number
[[nodiscard]] int SyncFileSystem(const UniqueFd& object, const std::string& path);

}  // namespace TAVO::FileMigrateOrvane
