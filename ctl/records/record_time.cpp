#include "record_time.h"

#include <array>
#include <chrono>
#include <ctime>

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr std::size_t DIGITS = 14;

struct TimeForm {
    const char* form;  ///< of strptime
    int lastSecond;    ///< of the span that the text stands for
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

/// The time as 14 digits; none when there is no such day.
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

}  // namespace

std::string TimeText(const std::string& times, char between) {
    if (times.size() != DIGITS) {
        return times;
    }
    return times.substr(0, 4) + "-" + times.substr(4, 2) + "-" + times.substr(6, 2) + between + times.substr(8, 2) +
           ":" + times.substr(10, 2) + ":" + times.substr(12, 2);
}

std::optional<std::string> ParseTime(const std::string& text, Edge edge) {
    for (const TimeForm& form : TIME_FORMS) {
        std::tm time = Today();
        const char* end = strptime(text.c_str(), form.form, &time);
        if (end == nullptr || *end != '\0') {
            continue;
        }
        if (edge == Edge::End) {  // what the text leaves out is 0 so far
            time.tm_hour += form.lastSecond / 3600;
            time.tm_min += form.lastSecond / 60 % 60;
            time.tm_sec += form.lastSecond % 60;
        }
        return Digits(time);
    }
    return std::nullopt;
}

}  // namespace TAVO::FileMigrateOrvane
