// Writing a copy to its disk. Whoever removes a source does this first: a power cut must not lose both.
#pragma once

#include <string>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// Writes the file system that holds an open object to its disk. The descriptor should be as old as the copy: it also
/// reports what went wrong in writing back since it was opened.
/// @param path  of the object, for a descriptor opened with O_PATH, which cannot serve
/// @return 0 or an error number
[[nodiscard]] int SyncFileSystem(const UniqueFd& object, const std::string& path);

}  // namespace TAVO::FileMigrateOrvane
