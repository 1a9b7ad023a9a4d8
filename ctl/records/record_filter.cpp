#include "record_filter.h"

#include <strings.h>

#include <charconv>
#include <cstring>
#include <string_view>

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr int LARGEST_ERROR_NUMBER = 4095;  // the kernel's own limit

bool EqualsInAnyCase(const std::string& one, const std::string& other) {
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

bool IsAtOrBelow(std::string_view path, std::string_view prefix) {
    while (prefix.size() > 1 && (prefix.ends_with('/') || prefix.ends_with("/."))) {
        prefix.remove_suffix(1);
    }
    return path.starts_with(prefix) && (path.size() == prefix.size() || prefix == "/" || path[prefix.size()] == '/');
}

}  // namespace

bool Matches(const RecordFilter& filter, const Record& record) {
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

}  // namespace TAVO::FileMigrateOrvane
