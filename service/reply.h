// The reply to one request: the result record and the string packages. The caller is a worker that holds a reference on
// the connection. Nothing here closes it.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "command.h"

namespace TAVO::FileMigrateOrvane {

/// Joins result strings by "/" into package texts of at most 4095 bytes. A string is never split: if it does not fit
/// into the rest of a package, it starts the next.
/// @return views of the list's own text
[[nodiscard]] std::vector<std::string_view> PackStrings(const StringList& strs);

/// Writes the result record and then the packages. A client that does not read makes it wait for a few seconds at most.
/// If a record cannot be sent, it logs that and ends the stream in both directions.
void SendResMsg(int fd, std::int32_t result, const extraInfo& info);

/// Writes the packages in order, up to the first that cannot be sent.
void SendStrPkgs(int fd, std::int32_t pkgNum, const std::vector<std::string_view>& packages);

}  // namespace TAVO::FileMigrateOrvane
