// What the daemon leaves behind after failures: its record files and kernel-log dumps. Their paths are fixed, so only
// one test at a time may use them.
#pragma once

#include <string>
#include <vector>

namespace TAVO::FileMigrateOrvane::Testing {

inline constexpr const char* BI_FILE_OLD = "/data/update/migrate/file_migrate_bi.txt";
inline constexpr const char* BI_FILE = "/data/zelto/update/migrate/file_migrate_bi.txt";
inline constexpr const char* AB_FILE = "/data/zelto/update/migrate/file_migrate_ab.txt";
inline constexpr const char* KMSG_DIR = "/data/zelto/update/migrate/file_migrate_fail_kmsg";

/// Empties the record directories. Creates them if they are missing, because the daemon does not.
void ClearRecords();

/// The records of a file in order, each from its "type:" to its last ";". A missing file has no records.
std::vector<std::string> Records(const std::string& file = AB_FILE);

/// Absolute paths of the rotated record files, oldest first.
std::vector<std::string> RotatedFiles();

/// Absolute paths of the kernel-log dumps whose name begins with a record's type, oldest first.
std::vector<std::string> KernelLogDumps(const std::string& type = "");

}  // namespace TAVO::FileMigrateOrvane::Testing
