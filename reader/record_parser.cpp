#include "record_parser.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "cursor.h"
#include "record_reader.h"
#include "snapshot_text.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

/// How many possible starts inside a record or after it are tried.
constexpr int MOST_STARTS = 8;
/// The last bytes of a growing file that may be the first part of a start.
constexpr std::size_t LONGEST_START = 128;

void AddSkipped(std::size_t from, std::size_t to, ParsedRecords& parsed) {
    std::vector<SkippedBytes>& skipped = parsed.skipped;
    if (!skipped.empty() && skipped.back().offset + skipped.back().length == from) {
        skipped.back().length += to - from;
    } else if (to > from) {
        skipped.push_back({from, to - from});
    }
}

bool IsInDoubt(const Snapshot& snapshot) {
    const auto* const attribute = std::get_if<AttributeSnapshot>(&snapshot);
    return attribute != nullptr && IsInDoubt(*attribute);
}

Record RecordOf(Reading reading) {
    const InformationLine& line = reading.line;
    Record record;
    record.length = reading.snapshots.end - reading.start->position;
    record.type = reading.start->type;
    record.times = line.times;
    record.refusedField = reading.start->refusedField;
    record.refusedValue = reading.start->refusedValue;
    record.src = line.src;
    record.dst = line.dst;
    record.user = line.user;
    record.group = line.group;
    record.perm = line.perm;
    record.recurseOpt = line.recurseOpt;
    if (record.refusedField.empty()) {
        record.errorNumber = line.errorNumber;
    }
    record.snapshots = std::move(reading.snapshots.snapshots);
    record.isAmbiguous = line.isInDoubt || std::any_of(record.snapshots.begin(), record.snapshots.end(),
                                                       [](const Snapshot& snapshot) { return IsInDoubt(snapshot); });
    return record;
}

/// Reads a run of bytes without a NUL; no path and no value contains one.
class SegmentReader {
public:
    /// @param offset  position of the bytes in the parsed input
    SegmentReader(std::string_view bytes, std::size_t offset, bool isGrowing, ParsedRecords& result)
        : text{bytes, Landmarks(bytes), WorkBudget(bytes.size()), isGrowing},
          reader(text),
          begin(offset),
          parsed(result) {}

    /// Adds all records and skipped bytes to the result. @return the number of bytes consumed
    std::size_t Run();

private:
    bool LosesToOneInside(Reading& reading);
    bool MayBecomeWhole(const RecordStart& start);
    std::size_t AfterNewlines(std::size_t position) const;
    void Skip(std::size_t from, std::size_t to);

    ParsedText text;
    RecordReader reader;
    std::size_t begin;
    ParsedRecords& parsed;
    const RecordStart* doubtful = nullptr;  ///< either the next record begins here or an earlier one goes on
};

std::size_t SegmentReader::Run() {
    std::size_t done = AfterNewlines(0);
    std::size_t paid = 0;
    const RecordStart* start = text.landmarks.StartFrom(done);
    while (start != nullptr) {
        text.budget.Earn(start->position - paid);
        paid = start->position;
        std::optional<Reading> reading = reader.Read(*start, /*looksInside=*/true);
        const bool isWhole = reading && reading->snapshots.isWhole;
        if (text.isGrowing && !isWhole && MayBecomeWhole(*start)) {
            Skip(done, start->position);
            parsed.work += text.budget.Spent();
            return start->position;
        }
        if (!reading || LosesToOneInside(*reading)) {
            start = text.landmarks.Next(*start);
            continue;
        }
        Skip(done, start->position);
        reading->line.isInDoubt |= start == doubtful;
        doubtful = reading->snapshots.stoppedAt;
        done = AfterNewlines(reading->snapshots.end);
        parsed.records.push_back(RecordOf(std::move(*reading)));
        parsed.records.back().offset = begin + start->position;
        start = text.landmarks.StartFrom(done);
    }
    const std::size_t size = text.bytes.size();
    const std::size_t end = text.isGrowing ? std::max(done, size - std::min(size, LONGEST_START)) : size;
    Skip(done, end);
    parsed.work += text.budget.Spent();
    return end;
}

/// If an unproven line contains the start of another record, either one of its paths contains that text, or the line
/// was cut there and the inner record is real. In a path, a text that looks like a whole record follows a ";".
bool SegmentReader::LosesToOneInside(Reading& reading) {
    if (reading.proof == Proof::Snapshots) {
        return false;
    }
    int starts = 0;
    for (const RecordStart* inside = text.landmarks.Next(*reading.start);
         inside != nullptr && inside->position < reading.line.end && starts < MOST_STARTS;
         inside = text.landmarks.Next(*inside), ++starts) {
        const std::optional<Reading> other = reader.Read(*inside, /*looksInside=*/false);
        if (!other || other->proof < reading.proof) {
            continue;
        }
        if (other->proof > reading.proof) {
            return true;
        }
        reading.line.isInDoubt = true;
        doubtful = inside;
        return reader.IsGlued(*inside);
    }
    return false;
}

/// Whether later bytes could complete the record. False if the bytes at hand show that it was cut.
bool SegmentReader::MayBecomeWhole(const RecordStart& start) {
    const RecordStart* next = text.landmarks.Next(start);
    for (int starts = 0; next != nullptr; next = text.landmarks.Next(*next)) {
        if (++starts > MOST_STARTS || reader.IsRecord(*next)) {
            return false;
        }
    }
    return true;
}

std::size_t SegmentReader::AfterNewlines(std::size_t position) const {
    Cursor cursor(text.bytes, position);
    cursor.SkipNewlines();
    return cursor.Position();
}

void SegmentReader::Skip(std::size_t from, std::size_t to) {
    AddSkipped(begin + from, begin + to, parsed);
}

}  // namespace

ParsedRecords ParseRecords(std::string_view bytes, Input input) {
    ParsedRecords parsed;
    while (parsed.consumed < bytes.size()) {
        const std::size_t begin = parsed.consumed;
        const std::size_t end = std::min(bytes.find('\0', begin), bytes.size());
        const bool isGrowing = input == Input::Growing && end == bytes.size();
        SegmentReader segment(bytes.substr(begin, end - begin), begin, isGrowing, parsed);
        parsed.consumed += segment.Run();
        if (end == bytes.size()) {
            break;
        }
        parsed.consumed = std::min(bytes.find_first_not_of('\0', end), bytes.size());
        AddSkipped(end, parsed.consumed, parsed);
    }
    return parsed;
}

}  // namespace TAVO::FileMigrateOrvane::Reader
