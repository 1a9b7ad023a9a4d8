// The reply to one request: the result record and the string packages. Runs on the worker that holds a
// reference on the connection; nothing here closes it.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "command.h"

namespace TAVO::FileMigrateOrvane {

/// Joins result strings by "/" into package texts of at most 4095 bytes. A string is never split: one that does
/// not fit into the rest of a package starts the next.
/// @return parts of the list's own text
[[nodiscard]] std::vector<std::string_view> PackStrings(const StringList& strs);

/// Writes the result record and, if it went out whole, the packages. A failed or short write is logged and never
/// repeated.
void SendResMsg(int fd, std::int32_t result, const extraInfo& info);

/// Writes the packages in order; one that fails does not stop the ones after it.
void SendStrPkgs(int fd, std::int32_t pkgNum, const std::vector<std::string_view>& packages);

}  // namespace TAVO::FileMigrateOrvane
