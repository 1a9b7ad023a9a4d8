// Reads the record at one start: its line, the snapshots after it, and how well the reading is proven. Used by one
// thread; refers to the text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "information_line.h"
#include "parsed_text.h"
#include "snapshot_matcher.h"

namespace TAVO::FileMigrateOrvane::Reader {

/// How well a reading is proven.
enum class Proof : std::uint8_t {
    Missing,    ///< its type has snapshots, but none of them repeats its path
    LineAlone,  ///< its type has no snapshots
    Snapshots,  ///< a snapshot repeats its path
};

/// One way to read the bytes that begin at a start.
struct Reading {
    const RecordStart* start = nullptr;
    InformationLine line;
    SnapshotMatcher::Result snapshots;
    Proof proof = Proof::Missing;
};

class RecordReader {
public:
    explicit RecordReader(ParsedText& parsedText) : text(parsedText) {}

    /// The most likely reading; nothing if no whole line begins there.
    /// @param looksInside  whether a value ends where another whole record begins
    std::optional<Reading> Read(const RecordStart& start, bool looksInside);

    /// Whether a real record begins there, and not just text in a value that looks like one. A real record is whole
    /// and followed by another one or by nothing; or its snapshots prove it and it begins where another one was cut.
    bool IsRecord(const RecordStart& start);

    /// Whether the text before the start lacks the ";" that ends a record.
    [[nodiscard]] bool IsGlued(const RecordStart& start) const;

private:
    [[nodiscard]] Reading ReadRefused(const RecordStart& start) const;
    [[nodiscard]] bool IsBetter(const Reading& reading, const Reading& best, const RecordType& type) const;
    [[nodiscard]] bool MayBeBetter(std::size_t lineEnd, const Reading& best, const RecordType& type) const;
    [[nodiscard]] bool IsFollowedWell(std::size_t lineEnd, const RecordType& type) const;
    [[nodiscard]] bool IsFollowedByRecord(std::size_t lineEnd) const;
    [[nodiscard]] bool IsFollowedBySnapshots(std::size_t lineEnd, const RecordType& type) const;

    ParsedText& text;
    std::unordered_map<std::size_t, bool> isRecordAt;  ///< cached answers, by position
};

}  // namespace TAVO::FileMigrateOrvane::Reader
