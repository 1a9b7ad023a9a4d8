// Who may read what this person may not. A function without state; one thread.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// What to do about a file or a directory that may not be read: "run this as root", with the group that may, too,
/// where there is one.
std::string AccessHint(const std::string& path);

}  // namespace TAVO::FileMigrateOrvane
