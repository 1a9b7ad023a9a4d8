// What a person can do when the daemon cannot be reached. Looks at the socket's file only; stateless.
#pragma once

#include <string>
#include <system_error>

namespace TAVO::FileMigrateOrvane {

/// @param code  why there was no answer
/// @return one sentence, without a full stop; empty where there is nothing to advise
std::string Advice(const std::error_code& code, const std::string& socketPath);

/// "root:system 0660"; empty where the file cannot be looked at.
std::string OwnerAndMode(const std::string& path);

}  // namespace TAVO::FileMigrateOrvane
