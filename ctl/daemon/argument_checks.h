// Checks of command-line words. They run before anything is sent, because the daemon refuses an invalid request without
// a reply. Each check returns an error message, or an empty text. Functions without state.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane::Ctl {

/// Prepends the working directory to a relative path. Works on the text only: links and a trailing slash are kept.
/// Refuses a result of more than 4095 bytes.
std::string MakeAbsolute(std::string& path);

/// The same for a path that will be removed. Refuses the root directory.
std::string MakeAbsoluteBelowRoot(std::string& path);

/// Accepts only octal digits. The daemon would read "75o" as mode 075, and it takes 0 for a text that is no mode.
std::string CheckMode(std::string& mode);

/// Splits "USER:GROUP".
std::string SplitOwner(const std::string& owner, std::string& user, std::string& group);

std::string CheckSocketPath(const std::string& path);

}  // namespace TAVO::FileMigrateOrvane::Ctl
