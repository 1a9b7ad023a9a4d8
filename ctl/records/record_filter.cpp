#include "record_filter.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr int LARGEST_ERROR_NUMBER = 4095;  // the kernel reserves this range

bool EqualsInAnyCase(const std::string& one, const std::string& other) {
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

bool IsAtOrBelow(std::string_view path, std::string_view prefix) {
    while (prefix.size() > 1 && (prefix.ends_with('/') || prefix.ends_with("/."))) {
        prefix.remove_suffix(1);
    }
    return path.starts_with(prefix) && (path.size() == prefix.size() || prefix == "/" || path[prefix.size()] == '/');
}

constexpr std::size_t DIGITS = 14;

struct TimeForm {
    const char* form;  ///< for strptime
    int lastSecond;    ///< of the time span that the text means
};
constexpr TimeForm TIME_FORMS[] = {
    {"%Y-%m-%d %H:%M:%S", 0}, {"%Y-%m-%dT%H:%M:%S", 0},       {"%Y-%m-%d %H:%M", 59}, {"%Y-%m-%dT%H:%M", 59},
    {"%H:%M:%S", 0},          {"%Y-%m-%d", 24 * 60 * 60 - 1}, {"%H:%M", 59},          {"%Y%m%d%H%M%S", 0},
};

std::tm Today() {
    const std::time_t now = std::time(nullptr);
    std::tm day{};
    localtime_r(&now, &day);
    day.tm_hour = day.tm_min = day.tm_sec = 0;
    return day;
}

/// The time as 14 digits; nothing if there is no such day.
std::optional<std::string> Digits(const std::tm& time) {
    const std::chrono::year_month_day day{std::chrono::year(time.tm_year + 1900),
                                          std::chrono::month(static_cast<unsigned>(time.tm_mon + 1)),
                                          std::chrono::day(static_cast<unsigned>(time.tm_mday))};
    std::array<char, 16> text{};
    if (!day.ok() || std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &time) != DIGITS) {
        return std::nullopt;
    }
    return text.data();
}

/// "today", "yesterday", "-90s", "-1h" or "10 min ago".
std::optional<std::tm> RelativeTime(const std::string& text, Edge edge) {
    constexpr std::pair<std::string_view, int> units[] = {{"s", 1},      {"sec", 1},      {"m", 60},    {"min", 60},
                                                          {"h", 3600},   {"hour", 3600},  {"d", 86400}, {"day", 86400},
                                                          {"w", 604800}, {"week", 604800}};
    if (text == "today" || text == "yesterday") {
        std::tm day = Today();
        day.tm_mday -= text == "yesterday" ? 1 : 0;
        day.tm_isdst = -1;
        (void)std::mktime(&day);
        if (edge == Edge::End) {
            day.tm_hour = 23;
            day.tm_min = day.tm_sec = 59;
        }
        return day;
    }
    long count = 0;
    std::string_view rest = text;
    const bool isAgo = rest.ends_with(" ago");
    rest.remove_suffix(isAgo ? 4 : 0);
    rest.remove_prefix(!isAgo && rest.starts_with('-') ? 1 : 0);
    const auto [end, failure] = std::from_chars(rest.data(), rest.data() + rest.size(), count);
    if (failure != std::errc() || (!isAgo && rest.size() == text.size()) || count < 0 || count > 1'000'000) {
        return std::nullopt;
    }
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    for (const auto& [unit, seconds] : units) {
        if (rest == unit || (rest.size() == unit.size() + 1 && rest.starts_with(unit) && rest.ends_with('s'))) {
            const std::time_t then = std::time(nullptr) - count * seconds;
            std::tm local{};
            localtime_r(&then, &local);
            return local;
        }
    }
    return std::nullopt;
}

}  // namespace

bool Matches(const RecordFilter& filter, const Reader::Record& record) {
    return (filter.since.empty() || record.times >= filter.since) &&
           (filter.until.empty() || record.times <= filter.until) &&
           (filter.type.empty() || EqualsInAnyCase(record.type, filter.type)) &&
           (!filter.errorNumber || record.errorNumber == filter.errorNumber) &&
           (filter.path.empty() || IsAtOrBelow(record.src, filter.path) || IsAtOrBelow(record.dst, filter.path));
}

std::optional<int> ParseErrorNumber(const std::string& text) {
    int number = 0;
    const char* end = text.data() + text.size();
    if (const auto parsed = std::from_chars(text.data(), end, number); parsed.ec == std::errc() && parsed.ptr == end) {
        return number;
    }
    for (number = 1; number <= LARGEST_ERROR_NUMBER; ++number) {
        const char* name = strerrorname_np(number);
        if (name != nullptr && strcasecmp(name, text.c_str()) == 0) {
            return number;
        }
    }
    return std::nullopt;
}

std::string Now() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return Digits(local).value_or("");
}

std::optional<std::string> ParseTime(const std::string& text, Edge edge) {
    if (std::optional<std::tm> time = RelativeTime(text, edge)) {
        return Digits(*time);
    }
    for (const TimeForm& form : TIME_FORMS) {
        std::tm time = Today();
        const char* end = strptime(text.c_str(), form.form, &time);
        if (end == nullptr || *end != '\0') {
            continue;
        }
        if (edge == Edge::End) {  // so far everything that the text leaves out is 0
            time.tm_hour += form.lastSecond / 3600;
            time.tm_min += form.lastSecond / 60 % 60;
            time.tm_sec += form.lastSecond % 60;
        }
        return Digits(time);
    }
    return std::nullopt;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
