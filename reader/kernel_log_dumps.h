// The dumps of kernel-log lines that the daemon leaves beside its records, and the record that each belongs to.
// Functions without state; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "record.h"

namespace TAVO::FileMigrateOrvane {

inline constexpr const char* DUMP_DIRECTORY = "/data/zelto/update/migrate/file_migrate_fail_kmsg";

struct KernelLogDump {
    std::string name;     ///< in DUMP_DIRECTORY
    std::string type;     ///< of the record
    std::string times;    ///< 14 digits
    std::string content;  ///< kernel-log lines; none is not unusual
    int errorNumber = 0;  ///< when not 0, the content could not be read
};

/// All dumps with their contents, oldest first. Files with other names are left out.
/// @param err  set when the directory cannot be listed; one that is missing has no dumps
std::vector<KernelLogDump> KernelLogDumps(int& err);

/// Whether the daemon dumps the kernel log after such a record.
[[nodiscard]] bool IsDumped(const Record& record);

/// Whether the dump can have been made after the record: the next one of its type within a few seconds.
[[nodiscard]] bool MayBelong(const KernelLogDump& dump, const Record& record);

}  // namespace TAVO::FileMigrateOrvane
