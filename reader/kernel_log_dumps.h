// The kernel-log dumps that the daemon writes after some failures, and which record each one belongs to. Functions
// without state; any thread may call them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "record.h"
#include "record_format.h"

namespace TAVO::FileMigrateOrvane::Reader {

struct KernelLogDump {
    std::string name;     ///< file name
    std::string type;     ///< type of the record
    std::string times;    ///< 14 digits
    std::string content;  ///< kernel-log lines; often empty
    int errorNumber = 0;  ///< if it is not 0, the content could not be read
};

/// All dumps with their contents, oldest first. Files with other names are ignored.
/// @param directory  DUMP_DIRECTORY or a copy of it
/// @param err  set if the directory cannot be listed; a missing directory has no dumps
std::vector<KernelLogDump> KernelLogDumps(const std::string& directory, int& err);

/// Whether the daemon writes a dump after such a record.
[[nodiscard]] bool IsDumped(const Record& record);

/// Whether the dump may belong to the record: it has the same type and is at most a few seconds younger.
[[nodiscard]] bool MayBelong(const KernelLogDump& dump, const Record& record);

}  // namespace TAVO::FileMigrateOrvane::Reader
