// The record files as one stream of records: which files there are, in which order they are read, and how they are
// read on while the daemon writes and rotates them. A stream holds its files open and makes no copies of them. One
// thread.
#pragma once

#include <sys/stat.h>

#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "record_input.h"

namespace TAVO::FileMigrateOrvane {

/// Where the daemon writes: kinds 1, 2 and 3. Only the last is ever rotated.
inline constexpr const char* RECORD_FILES[] = {
    "/data/update/migrate/file_migrate_bi.txt",
    "/data/zelto/update/migrate/file_migrate_bi.txt",
    "/data/zelto/update/migrate/file_migrate_ab.txt",
};

/// The files that FILE.txt was rotated into, FILE_YYYYMMDDhhmmss.txt, oldest first.
/// @param err  set when the directory cannot be listed; one that is missing has no files
std::vector<std::string> RotatedFiles(const std::string& path, int& err);

/// A file to read.
struct RecordPath {
    std::string path;              ///< or STANDARD_INPUT
    bool mayBeMissing = false;     ///< else that is a trouble
    bool includesRotated = false;  ///< what it was rotated into comes first
};

/// All that the daemon writes; any of them may be missing.
std::vector<RecordPath> AllRecordPaths();

/// A record file with the ones that it was rotated into, in the order in which they were written.
class RecordSequence {
public:
    explicit RecordSequence(RecordPath toRead);

    /// The next record; null when there is none, or none yet. Valid until the next call.
    LocatedRecord* Peek();
    void Pop() { result.records.pop_front(); }

    /// The files end where they end now.
    void End();

    /// After the last record, unless ended: looks for what was written since. Every record comes once and whole, also
    /// when the file was rotated, several times even, since the last look.
    void LookAgain();

    [[nodiscard]] bool HasFiles() const { return hasFiles; }
    std::vector<ReadTrouble> TakeTroubles() { return std::exchange(result.troubles, {}); }

private:
    struct Source {
        std::string path;
        std::unique_ptr<RecordInput> input;  ///< null until its turn comes
        bool isFinal = true;                 ///< nothing more is written to it
    };
    /// Device, inode, time of the last write. An inode's number alone comes again when its file has been removed.
    using Identity = std::tuple<dev_t, ino_t, time_t, long>;

    void AddSources();
    void AddRotated(const RecordInput* current);
    std::unique_ptr<RecordInput> TryOpen(const std::string& path);
    bool ReadOn();
    void Tell(const std::string& path, int err);

    RecordPath wanted;
    std::deque<Source> sources;  ///< in the order of reading; the last is the file itself, unless that is missing
    ReadResult result;
    std::set<Identity> seen;                     ///< rotated files
    std::set<std::pair<std::string, int>> told;  ///< troubles are told once, not at every look
    bool hasFiles = false;
};

/// Several sequences as one, by the times of the records; the order within a sequence stays as it is.
class RecordStream {
public:
    explicit RecordStream(const std::vector<RecordPath>& paths);

    /// The next record; none when there is none, or none yet.
    std::optional<LocatedRecord> Next();
    void End();
    void LookAgain();

    /// Whether there was any file.
    [[nodiscard]] bool HasFiles() const;

    /// What could not be read since the last call.
    std::vector<ReadTrouble> TakeTroubles();

private:
    std::deque<RecordSequence> sequences;
};

}  // namespace TAVO::FileMigrateOrvane
