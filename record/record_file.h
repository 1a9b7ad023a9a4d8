// The record files: which one a record goes to, the rotation of the main one, and the writer that appends and
// syncs. All functions may be called from any thread; records of kind RECORD_KIND_AB are serialised by a mutex,
// those of kinds 1 and 2 are not and may overwrite one another.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

// The record kinds: what the operations pass on as `recordKind`. Every other value, like NONE, writes nothing.
inline constexpr int RECORD_KIND_NONE = 0;    ///< no record; also what the recording's own housekeeping passes
inline constexpr int RECORD_KIND_UPDATE = 1;  ///< /data/update/migrate/file_migrate_bi.txt
inline constexpr int RECORD_KIND_ZELTO = 2;   ///< /data/zelto/update/migrate/file_migrate_bi.txt
inline constexpr int RECORD_KIND_AB = 3;      ///< /data/zelto/update/migrate/file_migrate_ab.txt, rotated at 256 KB

/// Appends a record to the file of its kind. The directory must exist. A record that cannot be written, or whose
/// rotation fails, is lost; only the log tells.
void WriteRecordErrToFile(const std::string& content, int recordKind);

/// Writes `content` at offset 0 from `whence` (SEEK_END appends) and syncs the file, which is created with mode
/// 0644 if it is missing. One write, never repeated. True on success; a failure is logged.
[[nodiscard]] bool WriteStringToFile(const std::string& path, const std::string& content, long whence);

/// The local time as 14 digits, "20240131235959".
[[nodiscard]] std::string GetCurrentTimeStr();

/// Lower-case hexadecimal digits without prefix and leading zeros. A negative value gives its 32-bit two's complement.
[[nodiscard]] std::string DecToHex(int value);

}  // namespace TAVO::FileMigrateOrvane
