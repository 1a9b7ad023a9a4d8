// The information line of a record, for one supposed end of it: which text is which field, from the fixed keys
// outwards. Texts refer to the bytes that were read. Stateless; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "credit.h"
#include "landmarks.h"
#include "record_types.h"

namespace TAVO::FileMigrateOrvane {

struct InformationLine {
    std::string_view src;
    std::string_view dst;
    std::string_view user;
    std::string_view group;
    std::string_view perm;
    std::string_view recurseOpt;
    std::string_view times;
    int errorNumber = 0;
    std::size_t end = 0;     ///< behind its ";"
    bool isInDoubt = false;  ///< the fields can be told apart in another way too
};

/// The line that ends with the given ",times:"; none where what stands before it is not a line of that type.
std::optional<InformationLine> ReadInformationLine(std::string_view text, const RecordStart& start,
                                                   const LineShape& shape, std::size_t timesAt, Credit& credit);

}  // namespace TAVO::FileMigrateOrvane
