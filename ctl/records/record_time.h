// The times of records, which are 14 digits of local time, to and from what a person writes. Functions without state.
#pragma once

#include <optional>
#include <string>

namespace TAVO::FileMigrateOrvane {

/// "2026-11-21 10:15:30", with any other character between date and time; a text of another length as it is.
std::string TimeText(const std::string& times, char between);

/// The edge of a span of time: a text that leaves out the seconds, or the time, stands for their first or last.
enum class Edge { Begin, End };

/// "2026-11-21", "2026-11-21 10:15", "2026-11-21T10:15:30", "10:15" (today), "20261121101530" as 14 digits; none for
/// any other text.
std::optional<std::string> ParseTime(const std::string& text, Edge edge);

}  // namespace TAVO::FileMigrateOrvane
