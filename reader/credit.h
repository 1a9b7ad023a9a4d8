// A limit on the work that is spent on readings that come to nothing: it grows with the bytes that are done with, so
// that hostile bytes cost no more than in proportion to their number, and ordinary ones never meet it. One thread.
#pragma once

#include <algorithm>
#include <cstddef>

namespace TAVO::FileMigrateOrvane {

/// Counted in bytes looked at.
class Credit {
public:
    /// @param bytes  all there are: one record may be made of them
    explicit Credit(std::size_t bytes) : left(bytes * FOR_READING) {}

    /// So many more bytes are done with. Enough to read an ordinary record is left, whatever those before it have cost.
    void Earn(std::size_t bytes) { left = std::max(left + bytes * PER_BYTE, ORDINARY); }

    /// False where there is no credit for so much.
    [[nodiscard]] bool Spend(std::size_t bytes) {
        const bool isGranted = bytes <= left;
        left -= isGranted ? bytes : left;
        return isGranted;
    }

private:
    static constexpr std::size_t FOR_READING = 128;
    static constexpr std::size_t PER_BYTE = 64;
    static constexpr std::size_t ORDINARY = 8192;

    std::size_t left;
};

}  // namespace TAVO::FileMigrateOrvane
