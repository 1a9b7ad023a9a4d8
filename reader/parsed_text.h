// The text being parsed, and what is known about it before any reading is tried: where a record can begin, where its
// information line can end, and how much work may be spent on it. Used by one thread; refers to the text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "record_format.h"

namespace TAVO::FileMigrateOrvane::Reader {

/// "type:NAME,src:", or the whole line of a refused request: "type:NAME,FIELD:VALUE,times:...;".
struct RecordStart {
    std::size_t position = 0;
    std::size_t bodyBegin = 0;  ///< position after "src:" or "FIELD:"
    std::string_view type;
    std::string_view refusedField;  ///< empty unless the record is a refused request
    std::string_view refusedValue;
};

class Landmarks {
public:
    explicit Landmarks(std::string_view text);

    /// The first start at or after `position`; null if there is none.
    [[nodiscard]] const RecordStart* StartFrom(std::size_t position) const;
    [[nodiscard]] bool IsStart(std::size_t position) const;

    /// The start after this one; null if it is the last.
    [[nodiscard]] const RecordStart* Next(const RecordStart& start) const;

    /// Positions of ",times:" followed by 14 digits and ";", ascending.
    [[nodiscard]] const std::vector<std::size_t>& Times() const { return times; }

    /// The bytes of ",times:YYYYMMDDhhmmss;".
    static constexpr std::size_t TIMES_LENGTH = RecordKey::TIMES.size() + TIME_DIGITS + RecordKey::END.size();

private:
    std::vector<RecordStart> starts;
    std::vector<std::size_t> times;
};

/// Budget for speculative parsing, in bytes examined. It grows with the bytes already parsed, so hostile input costs
/// linear time and ordinary input never runs out.
class WorkBudget {
public:
    /// @param size  of the whole text, which may be a single record
    explicit WorkBudget(std::size_t size) : left(size * PER_BYTE_AT_START) {}

    /// Adds the share of `bytes` more parsed bytes. At least enough for an ordinary record is left, whatever the
    /// records before it have cost.
    void Earn(std::size_t bytes) { left = std::max(left + bytes * PER_BYTE, ORDINARY_RECORD); }

    /// Takes `bytes` from the budget. False if it holds less than that; it is empty then.
    [[nodiscard]] bool Spend(std::size_t bytes) {
        const bool isGranted = bytes <= left;
        spent += isGranted ? bytes : 0;
        left -= isGranted ? bytes : left;
        return isGranted;
    }

    /// All bytes granted so far.
    [[nodiscard]] std::size_t Spent() const { return spent; }

private:
    static constexpr std::size_t PER_BYTE_AT_START = 128;
    static constexpr std::size_t PER_BYTE = 64;
    static constexpr std::size_t ORDINARY_RECORD = 8192;

    std::size_t left;
    std::size_t spent = 0;
};

struct ParsedText {
    std::string_view bytes;
    Landmarks landmarks;
    WorkBudget budget;
    bool isGrowing = false;  ///< more bytes may follow
};

}  // namespace TAVO::FileMigrateOrvane::Reader
