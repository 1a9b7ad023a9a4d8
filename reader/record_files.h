// The record files as one stream of records: which files exist, in which order they are read, and how they are followed
// while the daemon writes and rotates them. Used by one thread.
#pragma once

#include <sys/stat.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <queue>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "record_format.h"
#include "record_input.h"

namespace TAVO::FileMigrateOrvane::Reader {

/// The rotated files of FILE.txt, which are named FILE_YYYYMMDDhhmmss.txt, oldest first.
/// @param err  set if the directory cannot be listed; a missing directory has no files
std::vector<std::string> RotatedFiles(const std::string& path, int& err);

/// A file to read.
struct RecordPath {
    std::string path;              ///< a file or STANDARD_INPUT
    bool mayBeMissing = false;     ///< if false, a missing file is reported
    bool includesRotated = false;  ///< read its rotated files before it
    std::string host{};            ///< the machine that it came from; may be empty
};

/// All files that the daemon writes; any of them may be missing.
std::vector<RecordPath> AllRecordPaths();

/// The record files in a directory that was copied from a machine, with their rotated files.
std::vector<RecordPath> RecordPathsIn(const std::string& directory, const std::string& host);

/// Whether the files are read as they are now, or followed while they grow.
enum class Reading { Once, Following };

/// A record file and its rotated files, in the order in which they were written.
class RecordSequence {
public:
    /// @param opensLate  open each file when it is its turn and close it between pieces, for Reading::Once
    RecordSequence(RecordPath toRead, Reading reading, bool opensLate);

    /// The next record; null if there is no further one at the moment. Valid until the next call.
    LocatedRecord* Peek();
    void Pop() { result.records.pop_front(); }

    /// Looks for records written since the last one, for Reading::Following. Every record is returned once and whole,
    /// even if the file was rotated several times in between.
    void Poll();

    [[nodiscard]] bool HasFiles() const { return hasFiles; }
    std::vector<ReadTrouble> TakeTroubles() { return std::exchange(result.troubles, {}); }

private:
    struct Source {
        std::string path;
        std::unique_ptr<RecordInput> input;  ///< null until it is read
        bool isFinal = true;                 ///< it does not grow any more
    };
    /// Device, inode and time of the last write. The kernel reuses the inode numbers of removed files.
    using Identity = std::tuple<dev_t, ino_t, time_t, long>;

    void AddSources();
    void AddRotated(const RecordInput* current);
    std::unique_ptr<RecordInput> TryOpen(const std::string& path);
    bool ReadOn();
    void Report(const std::string& path, int err);

    RecordPath wanted;
    bool isFollowing;
    bool opensLate;
    std::deque<Source> sources;  ///< in reading order; the last one is the file itself, unless it is missing
    ReadResult result;
    std::set<Identity> seen;                         ///< rotated files
    std::set<std::pair<std::string, int>> reported;  ///< each trouble is reported once, not at every poll
    bool hasFiles = false;
};

/// Several sequences merged by the times of the records. The order within a sequence does not change.
class RecordStream {
public:
    RecordStream(const std::vector<RecordPath>& paths, Reading reading);

    /// The next record; nothing if there is no further one at the moment.
    std::optional<LocatedRecord> Next();

    /// The next record, file after file: faster than Next, and it holds only one file open. Do not call both.
    std::optional<LocatedRecord> NextInAnyOrder();
    void Poll();

    /// Whether any file exists.
    [[nodiscard]] bool HasFiles() const;

    /// The files of the stream, and how many of them NextInAnyOrder has read. Rotated files do not count.
    [[nodiscard]] std::size_t Files() const { return sequences.size(); }
    [[nodiscard]] std::size_t FinishedFiles() const { return current; }

    /// Troubles since the last call.
    std::vector<ReadTrouble> TakeTroubles();

private:
    /// Time and index of a sequence; the earliest time first, then the lowest index.
    using Head = std::pair<std::string, std::size_t>;

    void PushHead(std::size_t index);

    std::deque<RecordSequence> sequences;
    std::priority_queue<Head, std::vector<Head>, std::greater<>> heads;  ///< of the sequences that have a record
    std::vector<std::size_t> idle;                                       ///< all other sequences
    bool hasNews = true;                                                 ///< an idle sequence may have a record
    std::size_t current = 0;                                             ///< for NextInAnyOrder
};

}  // namespace TAVO::FileMigrateOrvane::Reader
