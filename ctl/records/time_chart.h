// Counts by time as bars, for the page of a summary. Functions without state.
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace TAVO::FileMigrateOrvane::Ctl {

/// Counts by a span of time, such as "2026-11-21 10" for an hour. The spans without records are there with 0.
using TimeCounts = std::map<std::string, std::size_t>;

/// Folds counts by the hour into days, months or years if there would be too many bars otherwise.
/// @param hours  by "YYYY-MM-DD HH"
TimeCounts FoldForChart(const TimeCounts& hours);

/// "2026-11-21 10:00" for an hour; other spans unchanged.
std::string SpanText(const std::string& span);

/// An inline SVG image of the counts, with the number and the time of each bar as its tooltip.
std::string ChartSvg(const TimeCounts& counts);

}  // namespace TAVO::FileMigrateOrvane::Ctl
