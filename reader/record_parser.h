// Reads records from the bytes of a record file. The format escapes nothing, so the parser starts at the fixed keys and
// checks each reading against the snapshots that its record type has. Damaged, cut or interleaved bytes are skipped and
// reported; they never stop the parser. Functions without state; any thread may call them.
#pragma once

#include <string_view>
#include <vector>

#include "record.h"

namespace TAVO::FileMigrateOrvane::Reader {

/// Bytes that belong to no record.
struct SkippedBytes {
    std::size_t offset = 0;
    std::size_t length = 0;
};

struct ParsedRecords {
    std::vector<Record> records;        ///< in file order
    std::vector<SkippedBytes> skipped;  ///< in file order; adjacent ranges are joined
    std::size_t consumed = 0;           ///< bytes that the caller need not pass again
    std::size_t work = 0;               ///< bytes examined for readings that were tried, successful or not
};

/// Whether more bytes may follow. If so, bytes at the end that may still become a record, or a longer one, are left
/// unconsumed: only a process snapshot, or the start of the next record, proves that a record is complete.
enum class Input { Whole, Growing };

ParsedRecords ParseRecords(std::string_view bytes, Input input);

}  // namespace TAVO::FileMigrateOrvane::Reader
