// The record files: the choice of the file for a record, the rotation of the main file, and the writer that appends
// and syncs. Any thread may call all functions. A mutex serialises records of kind RECORD_KIND_AB; records of the kinds
// 1 and 2 are not serialised and may overwrite one another.
#pragma once

#include <string>

#include "record_format.h"

namespace TAVO::FileMigrateOrvane {

/// Appends a record to the file of its kind. The directory must exist. A record is lost if it cannot be written or if
/// the rotation before it fails; only the log reports that.
void WriteRecordErrToFile(const std::string& content, int recordKind);

/// Writes `content` at offset 0 from `whence` (SEEK_END appends) and syncs the file, which is created with mode
/// 0644 if it is missing. One write, never repeated. True on success; a failure is logged.
[[nodiscard]] bool WriteStringToFile(const std::string& path, const std::string& content, long whence);

/// The local time as 14 digits, "20240131235959".
[[nodiscard]] std::string GetCurrentTimeStr();

/// Lower-case hexadecimal digits without prefix and leading zeros. A negative value gives its 32-bit two's complement.
[[nodiscard]] std::string DecToHex(int value);

}  // namespace TAVO::FileMigrateOrvane
