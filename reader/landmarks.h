// The places in a text that a record can begin with, and those its information line can end with: found in one pass,
// before any of them is tried. Refers to the text. Read-only once made; any thread.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace TAVO::FileMigrateOrvane {

/// "type:NAME,src:", or the whole line of a refused request: "type:NAME,FIELD:VALUE,times:...;".
struct RecordStart {
    std::size_t position = 0;
    std::size_t bodyBegin = 0;  ///< behind "src:" or "FIELD:"
    std::string_view type;
    std::string_view refusedField;  ///< empty where it is no refused request
    std::string_view refusedValue;
};

class Landmarks {
public:
    explicit Landmarks(std::string_view text);

    /// The first start at `position` or behind it; null when there is none.
    [[nodiscard]] const RecordStart* StartFrom(std::size_t position) const;
    [[nodiscard]] bool IsStart(std::size_t position) const;

    /// The next one; null behind the last.
    [[nodiscard]] const RecordStart* Next(const RecordStart& start) const;

    /// Positions of ",times:" with 14 digits and ";", ascending.
    [[nodiscard]] const std::vector<std::size_t>& Times() const { return times; }

    static constexpr std::string_view TIMES_KEY = ",times:";
    static constexpr std::size_t TIMES_DIGITS = 14;
    static constexpr std::size_t TIMES_LENGTH = TIMES_KEY.size() + TIMES_DIGITS + 1;  ///< with the ";"

private:
    std::vector<RecordStart> starts;
    std::vector<std::size_t> times;
};

}  // namespace TAVO::FileMigrateOrvane
