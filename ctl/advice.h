// What the user can do about a daemon that cannot be reached or a file that cannot be read. The functions only look at
// owners and modes. Used by one thread.
#pragma once

#include <string>
#include <system_error>

namespace TAVO::FileMigrateOrvane::Ctl {

/// @param code  why the daemon did not answer
/// @return one sentence without a full stop; empty if there is no advice
std::string Advice(const std::error_code& code, const std::string& socketPath);

/// "root:system 0660"; empty if stat() on the file fails.
std::string OwnerAndMode(const std::string& path);

/// The obstacle between the user and a path: the path itself, or the directory on the way to it that may not be
/// searched.
std::string ObstacleTo(const std::string& path);

/// What to do about a file or directory that the user may not read: "run this as root", with the group that may read
/// it too, if there is one.
std::string AccessHint(const std::string& path);

}  // namespace TAVO::FileMigrateOrvane::Ctl
