// Reads records from the bytes of a record file. The format escapes nothing, so a record is read from its fixed keys
// outwards and checked against the snapshots that its type has. Damaged, cut and interleaved bytes are skipped and
// told, never fatal. Stateless; any thread.
#pragma once

#include <string_view>
#include <vector>

#include "record.h"

namespace TAVO::FileMigrateOrvane {

/// Bytes that are no record.
struct SkippedBytes {
    std::size_t offset = 0;
    std::size_t length = 0;
};

struct ParsedRecords {
    std::vector<Record> records;        ///< in the order of the bytes
    std::vector<SkippedBytes> skipped;  ///< likewise; neighbours are joined
    std::size_t consumed = 0;           ///< bytes that need not be looked at again
};

/// Whether more bytes may follow those at hand: then what may still become a record, or a longer one, is left
/// unconsumed. Nothing but the process snapshot and what follows it tells that a record does not go on.
enum class Input { Whole, Growing };

ParsedRecords ParseRecords(std::string_view bytes, Input input);

}  // namespace TAVO::FileMigrateOrvane
