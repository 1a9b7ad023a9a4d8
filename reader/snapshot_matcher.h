// Matches the snapshots of one record against what its type has. Values of attributes, and the resolved paths before
// inode flags, can hold anything, even the text of a snapshot: where they end is decided by the rest of the record
// fitting behind them. Used by one thread for one record.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "credit.h"
#include "cursor.h"
#include "information_line.h"
#include "landmarks.h"
#include "record.h"

namespace TAVO::FileMigrateOrvane {

/// The bytes at hand, and what is known about them.
struct RecordText {
    std::string_view bytes;
    Landmarks landmarks;
    bool isGrowing = false;  ///< more bytes may follow
};

class SnapshotMatcher {
public:
    struct Result {
        std::vector<Snapshot> snapshots;
        std::size_t end = 0;   ///< behind the last of them
        bool isWhole = false;  ///< all that the type has are there, and nothing shows that the last goes on
        bool isClean = false;  ///< a record follows, or nothing
        const RecordStart* stoppedAt = nullptr;  ///< where something ended because a record begins there
    };

    /// @param isRecordAt  whether a record begins at a start: no value goes on behind it then. Null: none does.
    SnapshotMatcher(const RecordText& recordText, const RecordType& recordType, const InformationLine& informationLine,
                    Credit& sharedCredit, std::function<bool(const RecordStart&)> isRecordAt);

    /// The longest row of snapshots behind the line.
    Result Match();

private:
    // Each tries to read on from `position` with the given step of the type. True when all the rest fits: then `best`
    // is it. Else `current` is as it was before, and `best` the longest row so far.
    bool MatchFrom(std::size_t step, std::size_t position);
    bool MatchStep(std::size_t step, std::size_t position);
    bool MatchAttributes(std::size_t step, std::size_t position);
    bool MatchFlags(std::size_t step, std::size_t position);
    bool MatchResolved(std::size_t step, std::size_t position);
    template <class Kind, class Take>
    bool MatchPlain(std::size_t step, std::size_t position, Take take);
    bool Continue(std::size_t step, std::size_t position, Snapshot snapshot);
    bool Finish(std::size_t position);
    bool Fail(std::size_t position);
    bool FailOrPassOver(std::size_t step, std::size_t position);

    enum class Behind { Another, TheRest, Nothing };
    Behind MatchAttribute(std::size_t step, std::size_t& position);
    bool IsRecordBefore(std::size_t end, const RecordStart*& start);
    Behind TryBehind(std::size_t step, std::size_t position, AttributeSnapshot attribute);
    [[nodiscard]] bool MayBegin(std::size_t position, std::string_view path) const;

    const std::string& Path(PathRole role);

    const RecordText& text;
    const RecordType& type;
    const InformationLine& line;
    Credit& credit;
    std::function<bool(const RecordStart&)> isRecord;
    std::array<std::optional<std::string>, 4> paths;  ///< by role, once they are needed
    std::vector<Snapshot> current;
    Result best;
    const RecordStart* stoppedAt = nullptr;
};

}  // namespace TAVO::FileMigrateOrvane
