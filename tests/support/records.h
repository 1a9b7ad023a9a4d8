// What the daemon leaves behind after failures: its record files and kernel-log dumps. Their paths are fixed, so only
// one test at a time may use them.
#pragma once

#include "record_format.h"
#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {

/// Empties the record directories. Creates them if they are missing, because the daemon does not.
void ClearRecords();

/// The records of a file in order, each from its "type:" to its last ";". A missing file has no records.
Strings Records(const std::string& file = RECORD_FILE_AB);

/// Absolute paths of the rotated record files, oldest first.
Strings RotatedFiles();

/// Absolute paths of the kernel-log dumps for a record's type, or for all, oldest first.
Strings KernelLogDumps(const std::string& type = "*");

}  // namespace TAVO::FileMigrateOrvane::Testing
