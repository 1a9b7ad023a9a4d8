// The kernel-log dump: the daemon's own lines of the kernel log (denials name the task), kept in a file beside the
// records.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Writes the kernel log's lines about this daemon to
/// "/data/zelto/update/migrate/file_migrate_fail_kmsg/" + `type` + "@" + time, or leaves no file. Two dumps of
/// one type within a second share a file. May run on any thread.
void DumpKmsg(const std::string& type);

}  // namespace TAVO::FileMigrateOrvane
