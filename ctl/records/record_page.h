// One HTML page about many records: failures by time, by cause and by machine, each with its last records to unfold.
// The page loads nothing and runs no scripts. Used by one thread.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "record_input.h"

namespace TAVO::FileMigrateOrvane::Ctl {

class RecordPage {
public:
    /// Adds a record. Call it in the order of the records' times.
    void Add(const Reader::LocatedRecord& located);

    /// The page, in the character set of the locale. All texts of records are escaped.
    [[nodiscard]] std::string Html() const;

private:
    /// Records that have something in common. Only the last ones are kept.
    struct Group {
        std::size_t count = 0;
        std::deque<std::shared_ptr<const std::string>> last;  ///< as items of a list; shared by the groups

        void Add(const std::shared_ptr<const std::string>& item);
        void Add(const Group& later);
    };
    using Groups = std::map<std::string, Group>;

    [[nodiscard]] static std::string List(const Groups& groups, bool isByTime);
    [[nodiscard]] std::string TimeSection() const;

    Group all;
    std::string first;  ///< 14 digits
    std::string last;
    Groups causes;
    Groups hosts;
    Groups hours;  ///< by "2026-11-21 10"
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
