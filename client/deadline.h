// A moment that ends all waiting of one operation, however many system calls it takes. A plain value.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>
#include <optional>

namespace TAVO::FileMigrateOrvane {

class Deadline {
public:
    /// @param limit  from now on; 0 or less never ends, and more than a year is taken as a year
    explicit Deadline(std::chrono::milliseconds limit) {
        if (limit.count() > 0) {
            // Without the bound a huge limit would overflow into the past.
            constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 366);
            end = std::chrono::steady_clock::now() + std::min(limit, longest);
        }
    }

    /// Milliseconds left, rounded up, in the shape poll takes them: -1 never ends, 0 is over.
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

}  // namespace TAVO::FileMigrateOrvane
