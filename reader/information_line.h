// Splits the information line of a record into its fields, for one assumed end of the line. The texts refer to the
// parsed bytes. Functions without state; any thread may call them.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "parsed_text.h"
#include "record_types.h"

namespace TAVO::FileMigrateOrvane::Reader {

struct InformationLine {
    std::string_view src;
    std::string_view dst;
    std::string_view user;
    std::string_view group;
    std::string_view perm;
    std::string_view recurseOpt;
    std::string_view times;
    int errorNumber = 0;
    std::size_t end = 0;     ///< position after its ";"
    bool isInDoubt = false;  ///< the line could be split in another way too
};

/// The line that ends with the ",times:" at `timesAt`. Nothing if the text before it is no line of that shape, or if
/// the budget is used up.
std::optional<InformationLine> ReadInformationLine(std::string_view text, const RecordStart& start,
                                                   const LineShape& shape, std::size_t timesAt, WorkBudget& budget);

}  // namespace TAVO::FileMigrateOrvane::Reader
