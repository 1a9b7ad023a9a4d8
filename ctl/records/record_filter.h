// Which records a person wants to see. Plain data and functions without state.
#pragma once

#include <optional>
#include <string>

#include "record.h"

namespace TAVO::FileMigrateOrvane {

/// What a record has to meet; what is empty is met by all. Times are 14 digits, as records have them.
struct RecordFilter {
    std::string since;  ///< inclusive, like `until`
    std::string until;
    std::string type;  ///< in capital letters or not
    std::optional<int> errorNumber;
    std::string path;  ///< what src or dst is, or lies below
};

[[nodiscard]] bool Matches(const RecordFilter& filter, const Record& record);

/// "EACCES", "eacces" or "13"; none for any other text.
std::optional<int> ParseErrorNumber(const std::string& text);

}  // namespace TAVO::FileMigrateOrvane
