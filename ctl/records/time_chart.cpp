#include "time_chart.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr std::size_t MOST_BARS = 72;
constexpr std::size_t LEAST_BARS = 12;      // in width, so that one bar does not fill the image
constexpr std::size_t MOST_YEARS = 10'000;  // a damaged record can have any time
constexpr const char* FORM = "%Y-%m-%d %H";

/// How much of "2026-11-21 10" names an hour, a day, a month and a year.
constexpr std::array<std::size_t, 4> LENGTHS = {13, 10, 7, 4};

/// The span after this one: "2026-12" after "2026-11".
std::string After(const std::string& span) {
    std::tm time{};
    time.tm_mday = 1;
    (void)strptime(span.c_str(), FORM, &time);  // parses only the fields that the span has
    int* const parts[] = {&time.tm_hour, &time.tm_mday, &time.tm_mon, &time.tm_year};
    ++*parts[std::ranges::find(LENGTHS, span.size()) - LENGTHS.begin()];
    (void)timegm(&time);
    std::array<char, 32> text{};
    (void)std::strftime(text.data(), text.size(), FORM, &time);
    return std::string(text.data()).substr(0, span.size());
}

TimeCounts Fold(const TimeCounts& hours, std::size_t length) {
    TimeCounts counts;
    for (const auto& [hour, count] : hours) {
        counts[hour.substr(0, length)] += count;
    }
    return counts;
}

/// Adds the spans without records.
/// @return false if there are more than `most`
bool Fill(TimeCounts& counts, std::size_t most) {
    const std::string last = counts.rbegin()->first;
    std::size_t steps = 0;
    for (std::string span = counts.begin()->first; span < last; span = After(span)) {
        counts.try_emplace(span, 0);
        if (++steps >= most) {
            return false;
        }
    }
    return true;
}

}  // namespace

TimeCounts FoldForChart(const TimeCounts& hours) {
    for (const std::size_t length : LENGTHS) {
        TimeCounts counts = Fold(hours, length);
        if (counts.empty() || Fill(counts, length == LENGTHS.back() ? MOST_YEARS : MOST_BARS)) {
            return counts;
        }
    }
    return Fold(hours, LENGTHS.back());
}

std::string SpanText(const std::string& span) {
    return span.size() == LENGTHS.front() ? span + ":00" : span;
}

std::string ChartSvg(const TimeCounts& counts) {
    std::size_t most = 1;
    for (const auto& [span, count] : counts) {
        most = std::max(most, count);
    }
    const std::size_t width = std::max(counts.size(), LEAST_BARS) * 10;
    std::string svg = "<svg viewBox=\"0 0 " + std::to_string(width) +
                      " 100\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"Records by time\">\n";
    std::size_t left = 0;
    for (const auto& [span, count] : counts) {
        const std::size_t height = count == 0 ? 0 : std::max<std::size_t>(1, count * 100 / most);
        svg += "<rect x=\"" + std::to_string(left + 1) + "\" y=\"" + std::to_string(100 - height) +
               "\" width=\"8\" height=\"" + std::to_string(height) + "\"><title>" + SpanText(span) + ": " +
               std::to_string(count) + "</title></rect>\n";
        left += 10;
    }
    return svg + "</svg>\n";
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
