// Reads what begins at one start, as the type of record there has it: the line, the snapshots behind it, and how much
// speaks for that reading. Used by one thread; refers to the text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "credit.h"
#include "information_line.h"
#include "landmarks.h"
#include "snapshot_matcher.h"

namespace TAVO::FileMigrateOrvane {

/// What speaks for a reading.
enum class Proof : std::uint8_t {
    Missing,    ///< there should be snapshots of its paths, and there are none
    LineAlone,  ///< its type has no snapshots
    Snapshots,  ///< they repeat its paths
};

/// One way to read the bytes from a start on.
struct Reading {
    const RecordStart* start = nullptr;
    InformationLine line;
    SnapshotMatcher::Result snapshots;
    Proof proof = Proof::Missing;
};

class RecordReader {
public:
    explicit RecordReader(const RecordText& recordText) : text(recordText), credit(recordText.bytes.size()) {}

    /// The likeliest reading; none where there is no whole line.
    /// @param looksInside  whether a value ends where a whole record begins
    std::optional<Reading> Read(const RecordStart& start, bool looksInside);

    /// Whether a record begins there, rather than a text like one that stands in a value: a whole one with another or
    /// nothing behind it, or one that its snapshots prove and that begins where another was cut.
    bool IsRecord(const RecordStart& start);

    /// Whether what stands before the start does not end with a ";", as a record does.
    [[nodiscard]] bool IsGlued(const RecordStart& start) const;

    /// So many more bytes are done with.
    void Earn(std::size_t bytes) { credit.Earn(bytes); }

private:
    [[nodiscard]] Reading ReadRefused(const RecordStart& start) const;
    bool IsBetter(Reading& reading, const Reading& best, const RecordType& type) const;
    [[nodiscard]] bool IsFollowedWell(std::size_t lineEnd, const RecordType& type) const;

    const RecordText& text;
    Credit credit;
    std::unordered_map<std::size_t, bool> isRecordAt;  ///< answers, by position
};

}  // namespace TAVO::FileMigrateOrvane
