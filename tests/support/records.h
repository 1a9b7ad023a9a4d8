// What the daemon leaves behind after failures: its record files and kernel-log dumps. Their paths are fixed, so only
// one test at a time may use them.
#pragma once

#include <string>
#include <vector>

#include "record_format.h"

namespace TAVO::FileMigrateOrvane::Testing {

/// Empties the record directories. Creates them if they are missing, because the daemon does not.
void ClearRecords();

/// The records of a file in order, each from its "type:" to its last ";". A missing file has no records.
std::vector<std::string> Records(const std::string& file = RECORD_FILE_AB);

/// Absolute paths of the rotated record files, oldest first.
std::vector<std::string> RotatedFiles();

/// Absolute paths of the kernel-log dumps whose name begins with a record's type, oldest first.
std::vector<std::string> KernelLogDumps(const std::string& type = "");

}  // namespace TAVO::FileMigrateOrvane::Testing
