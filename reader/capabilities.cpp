#include <linux/capability.h>
#include <sys/capability.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <memory>
#include <optional>

#include "explain.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr std::size_t HALF_DIGITS = 8;
constexpr std::uint64_t ALL_KNOWN = (std::uint64_t{1} << (CAP_LAST_CAP + 1U)) - 1;

/// 32 bits as the daemon writes them: without leading zeros.
std::optional<std::uint64_t> Half(std::string_view digits) {
    if (digits.empty() || digits.size() > HALF_DIGITS || (digits.size() > 1 && digits.front() == '0')) {
        return std::nullopt;
    }
    std::uint64_t bits = 0;
    const char* const end = digits.data() + digits.size();
    const auto [behind, failure] = std::from_chars(digits.data(), end, bits, 16);
    return behind == end && failure == std::errc() ? std::optional(bits) : std::nullopt;
}

std::string Names(std::uint64_t bits) {
    if (bits == ALL_KNOWN || bits == 0) {
        return bits == 0 ? "none" : "all";
    }
    const std::uint64_t missing = ALL_KNOWN & ~bits;
    if ((bits & ~ALL_KNOWN) == 0 && std::popcount(missing) < std::popcount(bits)) {
        return "all but " + Names(missing);
    }
    std::string names;
    for (int capability = 0; capability < 64; ++capability) {
        if ((bits >> static_cast<unsigned int>(capability) & 1U) != 0) {
            const std::unique_ptr<char, decltype(&cap_free)> name(cap_to_name(capability), cap_free);
            names.append(names.empty() ? "" : ",").append(name ? name.get() : std::to_string(capability));
        }
    }
    return names;
}

}  // namespace

std::vector<CapabilityReading> CapabilityReadings(std::string_view joinedDigits) {
    std::vector<std::uint64_t> readings;
    for (std::size_t upperDigits = 1; upperDigits < joinedDigits.size(); ++upperDigits) {
        const auto upper = Half(joinedDigits.substr(0, upperDigits));
        const auto lower = Half(joinedDigits.substr(upperDigits));
        if (upper && lower) {
            readings.push_back(*upper << 32U | *lower);
        }
    }
    const auto isUnknown = [](std::uint64_t bits) { return (bits & ~ALL_KNOWN) != 0; };
    if (!std::all_of(readings.begin(), readings.end(), isUnknown)) {
        std::erase_if(readings, isUnknown);
    }
    std::vector<CapabilityReading> named;
    named.reserve(readings.size());
    for (const std::uint64_t bits : readings) {
        named.push_back({bits, Names(bits)});
    }
    return named;
}

}  // namespace TAVO::FileMigrateOrvane
