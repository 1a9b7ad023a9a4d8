// Matches the snapshots of one record against the list that its type has. Attribute values and resolved paths may
// contain any text, even that of a snapshot, so they end where the rest of the record fits. Used by one thread for one
// record.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cursor.h"
#include "information_line.h"
#include "parsed_text.h"
#include "record.h"

namespace TAVO::FileMigrateOrvane::Reader {

class SnapshotMatcher {
public:
    struct Result {
        std::vector<Snapshot> snapshots;
        std::size_t end = 0;                     ///< position after the last snapshot
        bool isWhole = false;                    ///< all snapshots of the type were found, and the last one has ended
        bool isClean = false;                    ///< followed by another record or by nothing
        const RecordStart* stoppedAt = nullptr;  ///< the record whose start ended a value
    };

    /// @param isRecordAt  whether a real record begins at a start, which ends every value; null: never
    SnapshotMatcher(ParsedText& parsedText, const RecordType& recordType, const InformationLine& informationLine,
                    std::function<bool(const RecordStart&)> isRecordAt);

    /// The longest sequence of snapshots after the line.
    Result Match();

private:
    // Each function tries to read the given step of the type, and all later steps, at `position`. It returns true and
    // sets `best` if everything fits. Otherwise `current` is unchanged, and `best` is the longest sequence so far.
    bool MatchFrom(std::size_t step, std::size_t position);
    bool MatchStep(std::size_t step, std::size_t position);
    bool MatchAttributes(std::size_t step, std::size_t position);
    bool MatchFlags(std::size_t step, std::size_t position);
    bool MatchResolved(std::size_t step, std::size_t position);
    template <class Kind, class Take>
    bool MatchPlain(std::size_t step, std::size_t position, Take take);
    bool Continue(std::size_t step, std::size_t position, Snapshot snapshot);
    bool Finish(std::size_t position);
    void KeepIfLongest(std::size_t position);
    bool SkipStep(std::size_t step, std::size_t position);

    /// What fits after an attribute.
    enum class Follower { Attribute, Rest, Nothing };
    Follower MatchAttribute(std::size_t step, std::size_t& position);
    bool IsRecordBefore(std::size_t end, const RecordStart*& start);
    Follower TryAfter(std::size_t step, std::size_t position, AttributeSnapshot attribute);
    [[nodiscard]] bool MayBegin(std::size_t position, std::string_view path) const;

    const std::string& Path(PathRole role);

    ParsedText& text;
    const RecordType& type;
    const InformationLine& line;
    std::function<bool(const RecordStart&)> isRecord;
    std::array<std::optional<std::string>, 4> paths;  ///< by role; set when first needed
    std::vector<Snapshot> current;
    Result best;
    const RecordStart* stoppedAt = nullptr;
};

}  // namespace TAVO::FileMigrateOrvane::Reader
