// Two summaries by the same property, side by side: which groups of records are new, which are gone, and which have
// more or fewer records than before. Functions without state.
#pragma once

#include <optional>
#include <string>

#include "json_text.h"
#include "record_summary.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// The counts in a file that "orvanectl records --by WHAT --json" printed.
/// @param by   the property, as after --by
/// @param why  set to what is wrong with the file if nothing is returned
std::optional<GroupCounts> ReadSummary(const std::string& path, const std::string& by, std::string& why);

/// A table of the groups: new ones first, then those that are gone, then the others by how much they changed.
std::string ComparisonText(const GroupCounts& before, const GroupCounts& now, const std::string& by);

/// The same as an object with "by", "before", "now" and the array "groups".
Json ComparisonJson(const GroupCounts& before, const GroupCounts& now, const std::string& by);

}  // namespace TAVO::FileMigrateOrvane::Ctl
