// Selects the records to show, and parses the words of the command line that say which. Plain data and functions
// without state.
#pragma once

#include <optional>
#include <string>

#include "record.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// The conditions that a record has to meet; an empty one is met by every record. Times have 14 digits, as in records.
struct RecordFilter {
    std::string since;  ///< inclusive, like `until`
    std::string until;
    std::string type;  ///< in any case
    std::optional<int> errorNumber;
    std::string path;  ///< src or dst is this path or lies below it
};

[[nodiscard]] bool Matches(const RecordFilter& filter, const Reader::Record& record);

/// "EACCES", "eacces" or "13"; nothing for any other text.
std::optional<int> ParseErrorNumber(const std::string& text);

/// Which end of a time span is meant: a text without seconds, or without a time, means the first or the last of them.
enum class Edge { Begin, End };

/// The local time as 14 digits.
std::string Now();

/// "2026-11-21", "2026-11-21 10:15", "2026-11-21T10:15:30", "10:15" (today), "20261121101530",
/// "today", "yesterday", "-1h" or "10 min ago" as 14 digits; nothing for any other text.
std::optional<std::string> ParseTime(const std::string& text, Edge edge);

}  // namespace TAVO::FileMigrateOrvane::Ctl
