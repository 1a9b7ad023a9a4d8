// The kernel-log dump: a file next to the records with those lines of the kernel log that name the daemon. A denial by
// the security policy is such a line.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Writes the kernel log's lines about this daemon to a new file in DUMP_DIRECTORY, or leaves no file. Two dumps of one
/// type within a second share a file. Any thread may call it.
void DumpKmsg(const std::string& type);

}  // namespace TAVO::FileMigrateOrvane
