#include "record_reader.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "cursor.h"
#include "record_types.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

/// How many possible ends of a line are tried to read a record, and to find out whether a record begins at a position.
constexpr int MOST_LINES = 32;
constexpr int MOST_LINES_INSIDE = 4;
constexpr std::size_t PER_LINE = 16;

bool Repeats(const std::vector<Snapshot>& snapshots, std::string_view path) {
    return std::any_of(snapshots.begin(), snapshots.end(), [&](const Snapshot& snapshot) {
        const auto* const stat = std::get_if<StatSnapshot>(&snapshot);
        return stat != nullptr && stat->path == path;
    });
}

Proof ProofOf(const Reading& reading, const RecordType& type) {
    const std::vector<Snapshot>& snapshots = reading.snapshots.snapshots;
    if (type.snapshots.empty() || (type.name.empty() && snapshots.empty())) {
        return Proof::LineAlone;
    }
    const auto isStat = [](const Snapshot& snapshot) { return std::holds_alternative<StatSnapshot>(snapshot); };
    // With two paths, only a repeated second path proves where the line ends.
    const bool isProven = reading.line.dst.empty() ? std::any_of(snapshots.begin(), snapshots.end(), isStat)
                                                   : Repeats(snapshots, reading.line.dst);
    return isProven ? Proof::Snapshots : Proof::Missing;
}

}  // namespace

/// Takes the first end of the line that the snapshots, or the bytes after it, confirm.
std::optional<Reading> RecordReader::Read(const RecordStart& start, bool looksInside) {
    if (!start.refusedField.empty()) {
        return ReadRefused(start);
    }
    const RecordType& type = TypeOf(start.type);
    std::function<bool(const RecordStart&)> isRecord;
    if (looksInside) {
        isRecord = [this](const RecordStart& inside) { return IsRecord(inside); };
    }
    std::optional<Reading> best;
    int lines = looksInside ? MOST_LINES : MOST_LINES_INSIDE;
    const std::vector<std::size_t>& times = text.landmarks.Times();
    for (auto at = std::lower_bound(times.begin(), times.end(), start.bodyBegin);
         at != times.end() && lines > 0 && text.budget.Spend(PER_LINE); ++at) {
        const std::size_t end = *at + Landmarks::TIMES_LENGTH;
        if (best && !MayBeBetter(end, *best, type)) {
            lines -= IsFollowedByRecord(end) ? 1 : 0;
            continue;
        }
        const auto line = ReadInformationLine(text.bytes, start, type.line, *at, text.budget);
        if (!line) {
            continue;
        }
        --lines;
        Reading reading{&start, *line, SnapshotMatcher(text, type, *line, isRecord).Match()};
        reading.proof = ProofOf(reading, type);
        reading.line.isInDoubt |= best && reading.proof != Proof::Snapshots;
        if (!best || IsBetter(reading, *best, type)) {
            best = std::move(reading);
        }
        if (best->snapshots.isWhole || best->proof == Proof::Snapshots) {
            break;
        }
    }
    return best;
}

Reading RecordReader::ReadRefused(const RecordStart& start) const {
    Reading reading;
    reading.start = &start;
    reading.proof = Proof::LineAlone;
    const std::size_t timesAt = start.bodyBegin + start.refusedValue.size();
    reading.line.times = text.bytes.substr(timesAt + RecordKey::TIMES.size(), TIME_DIGITS);
    reading.line.end = timesAt + Landmarks::TIMES_LENGTH;
    reading.snapshots.end = reading.line.end;
    reading.snapshots.isWhole = true;
    reading.snapshots.isClean = IsFollowedByRecord(reading.line.end);
    return reading;
}

/// Whether a reading with a later end of the line is preferable: it is proven, or the bytes after the earlier end would
/// be no record.
bool RecordReader::IsBetter(const Reading& reading, const Reading& best, const RecordType& type) const {
    if (reading.proof == Proof::Snapshots) {
        return true;
    }
    const RecordStart* const between = text.landmarks.StartFrom(best.line.end);
    const bool isOneLine = between == nullptr || between->position >= reading.line.end;
    return isOneLine && !IsFollowedWell(best.line.end, type);
}

/// Whether a reading whose line ends at `lineEnd` can be preferable, judged by the bytes after it. Reading the line
/// would cost more: if `best` lacks its snapshots, the lines of all records after it are possible ends.
bool RecordReader::MayBeBetter(std::size_t lineEnd, const Reading& best, const RecordType& type) const {
    return IsFollowedBySnapshots(lineEnd, type) ||
           (!IsFollowedWell(best.line.end, type) && IsFollowedByRecord(lineEnd));
}

bool RecordReader::IsFollowedWell(std::size_t lineEnd, const RecordType& type) const {
    return IsFollowedByRecord(lineEnd) || IsFollowedBySnapshots(lineEnd, type);
}

/// Whether a record or the end of the text follows.
bool RecordReader::IsFollowedByRecord(std::size_t lineEnd) const {
    Cursor next(text.bytes, lineEnd);
    next.SkipNewlines();
    return next.Position() == text.bytes.size() || text.landmarks.IsStart(next.Position());
}

bool RecordReader::IsFollowedBySnapshots(std::size_t lineEnd, const RecordType& type) const {
    Cursor next(text.bytes, lineEnd);
    next.SkipNewlines();
    return !type.snapshots.empty() && (next.IsAt(RecordKey::STAT) || next.IsAt(RecordKey::LABEL_RESULT));
}

bool RecordReader::IsRecord(const RecordStart& start) {
    const auto [known, isNew] = isRecordAt.try_emplace(start.position, false);
    if (isNew) {
        const std::optional<Reading> reading = Read(start, /*looksInside=*/false);
        known->second = reading && ((reading->snapshots.isWhole && reading->snapshots.isClean) ||
                                    (reading->proof == Proof::Snapshots && IsGlued(start)));
    }
    return known->second;
}

bool RecordReader::IsGlued(const RecordStart& start) const {
    const std::size_t last = text.bytes.substr(0, start.position).find_last_not_of('\n');
    return last == std::string_view::npos || text.bytes[last] != ';';
}

}  // namespace TAVO::FileMigrateOrvane::Reader
