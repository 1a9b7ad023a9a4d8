#include "parsed_text.h"

#include <algorithm>
#include <optional>

#include "cursor.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

constexpr std::string_view DIGITS = "0123456789";
constexpr std::string_view NAME_CHARACTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
constexpr std::size_t LONGEST_NAME = 48;
/// The only refused request whose line can begin like that of another record.
constexpr std::string_view REFUSED_TEXT = RecordTypeName("INVALID_STR");
// The longest refused value is a mode text of 15 bytes.
constexpr std::size_t LONGEST_REFUSED_VALUE = 32;

bool IsTimes(std::string_view text, std::size_t position) {
    Cursor cursor(text, position);
    return cursor.Take(RecordKey::TIMES) && cursor.TakeAll(DIGITS, TIME_DIGITS).size() == TIME_DIGITS &&
           cursor.Take(";");
}

std::optional<RecordStart> StartAt(std::string_view text, std::size_t position) {
    Cursor cursor(text, position + RecordKey::TYPE.size());
    RecordStart start;
    start.position = position;
    start.type = cursor.TakeAll(NAME_CHARACTERS, LONGEST_NAME);
    if (start.type.empty() || !cursor.Take(",")) {
        return std::nullopt;
    }
    const std::string_view field = cursor.TakeAll(NAME_CHARACTERS, LONGEST_NAME);
    if (field.empty() || !cursor.Take(":")) {
        return std::nullopt;
    }
    start.bodyBegin = cursor.Position();
    if (field == "src" && start.type != REFUSED_TEXT) {
        return start;
    }
    const std::size_t most = std::min(text.size(), start.bodyBegin + LONGEST_REFUSED_VALUE);
    for (std::size_t end = start.bodyBegin; end <= most; ++end) {
        if (IsTimes(text, end)) {
            start.refusedField = field;
            start.refusedValue = text.substr(start.bodyBegin, end - start.bodyBegin);
            return start;
        }
    }
    return std::nullopt;
}

}  // namespace

Landmarks::Landmarks(std::string_view text) {
    for (std::size_t at = text.find(RecordKey::TYPE); at != std::string_view::npos;
         at = text.find(RecordKey::TYPE, at + 1)) {
        if (const auto start = StartAt(text, at)) {
            starts.push_back(*start);
        }
    }
    for (std::size_t at = text.find(RecordKey::TIMES); at != std::string_view::npos;
         at = text.find(RecordKey::TIMES, at + 1)) {
        if (IsTimes(text, at)) {
            times.push_back(at);
        }
    }
}

const RecordStart* Landmarks::StartFrom(std::size_t position) const {
    const auto found = std::lower_bound(starts.begin(), starts.end(), position,
                                        [](const RecordStart& start, std::size_t at) { return start.position < at; });
    return found != starts.end() ? &*found : nullptr;
}

bool Landmarks::IsStart(std::size_t position) const {
    const RecordStart* const start = StartFrom(position);
    return start != nullptr && start->position == position;
}

const RecordStart* Landmarks::Next(const RecordStart& start) const {
    return StartFrom(start.position + 1);
}

}  // namespace TAVO::FileMigrateOrvane::Reader
