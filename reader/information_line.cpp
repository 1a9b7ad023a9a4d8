#include "information_line.h"

#include <algorithm>
#include <array>

#include "cursor.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

constexpr std::string_view DIGITS = "0123456789";
constexpr std::size_t LONGEST_NUMBER = 11;

constexpr std::array<std::string_view, 4> KEYS = {RecordKey::USER, RecordKey::GROUP, RecordKey::PERM,
                                                  RecordKey::RECURSE_OPT};
constexpr std::size_t LONGEST_FIELDS =
    KEYS[0].size() + KEYS[1].size() + KEYS[2].size() + KEYS[3].size() + KEYS.size() * MAX_TEXT;

/// The four fields between the paths and ",errno:". Nothing marks where they begin, so the reader searches for the
/// beginning.
class ShortFields {
public:
    explicit ShortFields(const LineShape& shape) : shapes{shape.user, shape.group, shape.perm, shape.recurseOpt} {}

    /// Whether `text`, which begins with ",user:", consists of the four fields. Keeps the first possible split.
    bool Match(std::string_view text) {
        const int before = ways;
        MatchFrom(0, text);
        return ways > before;
    }

    /// The number of possible splits found so far.
    [[nodiscard]] int Ways() const { return ways; }

    [[nodiscard]] std::string_view Value(std::size_t field) const { return values[field]; }

private:
    void MatchFrom(std::size_t field, std::string_view rest) {
        if (field == KEYS.size()) {
            if (rest.empty() && ways++ == 0) {
                values = tried;
            }
            return;
        }
        if (!rest.starts_with(KEYS[field])) {
            return;
        }
        rest.remove_prefix(KEYS[field].size());
        if (shapes[field] == FieldShape::Text) {
            for (std::size_t length = 0; length <= std::min(rest.size(), MAX_TEXT); ++length) {
                Continue(field, rest, length);
            }
        } else {
            Cursor cursor(rest);
            const bool isNumber = shapes[field] == FieldShape::Number;
            if (isNumber && (cursor.Take("-"), cursor.TakeAll(DIGITS, LONGEST_NUMBER).empty())) {
                return;
            }
            Continue(field, rest, cursor.Position());
        }
    }

    void Continue(std::size_t field, std::string_view rest, std::size_t length) {
        tried[field] = rest.substr(0, length);
        MatchFrom(field + 1, rest.substr(length));
    }

    std::array<FieldShape, KEYS.size()> shapes;
    std::array<std::string_view, KEYS.size()> tried;
    std::array<std::string_view, KEYS.size()> values;
    int ways = 0;
};

/// The position of the ",errno:NUMBER" that ends at `timesAt`. Stores the number in the line.
std::optional<std::size_t> ErrnoBefore(std::string_view text, std::size_t timesAt, InformationLine& line) {
    const std::size_t least = timesAt - std::min(timesAt, RecordKey::ERRNO.size() + LONGEST_NUMBER);
    const std::size_t found = text.substr(least, timesAt - least).rfind(RecordKey::ERRNO);
    if (found == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t position = least + found;
    Cursor cursor(text, position + RecordKey::ERRNO.size());
    const bool isWhole = cursor.TakeNumber(line.errorNumber) && cursor.Position() == timesAt;
    return isWhole ? std::optional(position) : std::nullopt;
}

/// Splits the text into src and dst. The first snapshot repeats src and then has ":" where the line has ",dst:";
/// without a snapshot the first ",dst:" is taken.
bool SplitPaths(std::string_view paths, std::string_view following, InformationLine& line) {
    std::size_t split = std::string_view::npos;
    if (following.starts_with(RecordKey::STAT)) {
        following.remove_prefix(RecordKey::STAT.size());
        const auto difference = std::mismatch(paths.begin(), paths.end(), following.begin(), following.end());
        const auto length = static_cast<std::size_t>(difference.first - paths.begin());
        if (paths.substr(length).starts_with(RecordKey::DST) && following.substr(length).starts_with(":")) {
            split = length;
        }
    }
    if (split == std::string_view::npos) {
        split = paths.find(RecordKey::DST);
        if (split == std::string_view::npos) {
            return false;
        }
        line.isInDoubt |= paths.find(RecordKey::DST, split + 1) != std::string_view::npos;
    }
    line.src = paths.substr(0, split);
    line.dst = paths.substr(split + RecordKey::DST.size());
    return true;
}

/// Reads "SRC,dst:DST". False if the text does not fit the shape.
bool ReadPaths(std::string_view paths, const LineShape& shape, std::string_view following, InformationLine& line) {
    if (shape.hasDst) {
        return SplitPaths(paths, following, line);
    }
    if (!paths.ends_with(RecordKey::DST) || (!shape.hasSrc && paths != RecordKey::DST)) {
        return false;
    }
    line.src = paths.substr(0, paths.size() - RecordKey::DST.size());
    return true;
}

}  // namespace

std::optional<InformationLine> ReadInformationLine(std::string_view text, const RecordStart& start,
                                                   const LineShape& shape, std::size_t timesAt, WorkBudget& budget) {
    InformationLine line;
    const std::optional<std::size_t> errnoAt = ErrnoBefore(text, timesAt, line);
    if (!errnoAt || *errnoAt < start.bodyBegin || !budget.Spend(LONGEST_FIELDS)) {
        return std::nullopt;
    }
    line.end = timesAt + Landmarks::TIMES_LENGTH;
    line.times = text.substr(timesAt + RecordKey::TIMES.size(), TIME_DIGITS);
    Cursor following(text, line.end);
    following.SkipNewlines();

    const std::string_view body = text.substr(start.bodyBegin, *errnoAt - start.bodyBegin);
    ShortFields fields(shape);
    bool isRead = false;
    std::size_t userAt = body.size() - std::min(body.size(), LONGEST_FIELDS);
    for (; (userAt = body.find(KEYS[0], userAt)) != std::string_view::npos; ++userAt) {
        InformationLine candidate = line;
        const bool isAffordable = !shape.hasDst || budget.Spend(2 * userAt);
        if (isAffordable && ReadPaths(body.substr(0, userAt), shape, text.substr(following.Position()), candidate) &&
            fields.Match(body.substr(userAt)) && !isRead) {
            line = candidate;
            isRead = true;
        }
    }
    if (!isRead) {
        return std::nullopt;
    }
    line.user = fields.Value(0);
    line.group = fields.Value(1);
    line.perm = fields.Value(2);
    line.recurseOpt = fields.Value(3);
    line.isInDoubt |= fields.Ways() > 1;
    return line;
}

}  // namespace TAVO::FileMigrateOrvane::Reader
