// The time at which one operation stops waiting, over any number of system calls. A plain value.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>
#include <optional>

namespace TAVO::FileMigrateClient {

class Deadline {
public:
    /// @param limit  from now; 0 or less means no limit, and more than a year is treated as a year
    explicit Deadline(std::chrono::milliseconds limit) {
        if (limit.count() > 0) {
            // Without this bound a huge limit would overflow into the past.
            constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 366);
            end = std::chrono::steady_clock::now() + std::min(limit, longest);
        }
    }

    /// The milliseconds left, rounded up, as poll() takes them: -1 means no limit, 0 means that the time is over.
    [[nodiscard]] int Remaining() const {
        if (!end) {
            return -1;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, INT_MAX));
    }

private:
    std::optional<std::chrono::steady_clock::time_point> end;
};

}  // namespace TAVO::FileMigrateClient
