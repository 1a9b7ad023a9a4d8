// What is wrong with a word of the command line, found out before anything is sent: the daemon refuses a request that
// it cannot take without an answer. Each check returns the complaint, empty where there is none. Stateless.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Puts a relative path below the working directory, as text: links and a trailing slash stay what they are. The path
/// may have 4095 bytes then.
std::string MakeAbsolute(std::string& path);

/// The same for what is removed: the root directory is refused.
std::string MakeAbsoluteBelowRoot(std::string& path);

/// The daemon reads as far as octal digits go; "75o" is to be a mistake here, not mode 075. It takes 0 for a text that
/// is no mode.
std::string CheckMode(std::string& mode);

/// Takes "USER:GROUP" apart.
std::string SplitOwner(const std::string& owner, std::string& user, std::string& group);

std::string CheckSocketPath(const std::string& path);

}  // namespace TAVO::FileMigrateOrvane
