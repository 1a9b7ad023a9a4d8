// Counts of records by failure and by directory, with the times of the first and last. Used by one thread.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "json_text.h"
#include "record.h"

namespace TAVO::FileMigrateOrvane::Ctl {

class RecordSummary {
public:
    void Add(const Reader::Record& record);

    /// Two tables, the most frequent entries first.
    [[nodiscard]] std::string Text() const;
    [[nodiscard]] Json ToJson() const;

private:
    struct Tally {
        std::size_t count = 0;
        std::string first;  ///< 14 digits
        std::string last;

        void Add(const std::string& times);
        [[nodiscard]] std::string Text() const;
        [[nodiscard]] Json PutInto(Json object) const;
    };
    using Failure = std::pair<std::string, std::optional<int>>;  ///< type and error number

    Tally all;
    std::map<Failure, Tally> failures;
    std::map<std::string, Tally> directories;  ///< by the first two components of the path
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
