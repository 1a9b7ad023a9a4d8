// Counts of records, with the times of the first and last: by failure and by directory, or by one chosen property. Used
// by one thread.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "json_text.h"
#include "record_input.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// The number of records with each value of a property.
using GroupCounts = std::map<std::string, std::size_t>;

class RecordSummary {
public:
    /// @param property  one of PROPERTIES; empty for failures and directories
    explicit RecordSummary(std::string property) : by(std::move(property)) {}

    static constexpr const char* PROPERTIES[] = {"host", "cause", "type", "errno", "day"};

    void Add(const Reader::LocatedRecord& located);

    /// The tables, with the most frequent entries first.
    [[nodiscard]] std::string Text() const;
    [[nodiscard]] Json ToJson() const;

    /// The number of records by the property; empty without one.
    [[nodiscard]] GroupCounts Counts() const;

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

    std::string by;
    Tally all;
    std::map<std::string, Tally> groups;  ///< by the value of the property
    std::map<Failure, Tally> failures;
    std::map<std::string, Tally> directories;  ///< by the first two components of the path
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
