// The record files as one stream of records: which files exist, in which order they are read, and how they are followed
// while the daemon writes and rotates them. Used by one thread.
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
};

/// All files that the daemon writes; any of them may be missing.
std::vector<RecordPath> AllRecordPaths();

/// A record file and its rotated files, in the order in which they were written.
class RecordSequence {
public:
    explicit RecordSequence(RecordPath toRead);

    /// The next record; null if there is no further one at the moment. Valid until the next call.
    LocatedRecord* Peek();
    void Pop() { result.records.pop_front(); }

    /// Declares that the files will not grow: the last record counts as complete.
    void End();

    /// Looks for records written since the last one, unless End was called. Every record is returned once and whole,
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
    std::deque<Source> sources;  ///< in reading order; the last one is the file itself, unless it is missing
    ReadResult result;
    std::set<Identity> seen;                         ///< rotated files
    std::set<std::pair<std::string, int>> reported;  ///< each trouble is reported once, not at every poll
    bool hasFiles = false;
};

/// Several sequences merged by the times of the records. The order within a sequence does not change.
class RecordStream {
public:
    explicit RecordStream(const std::vector<RecordPath>& paths);

    /// The next record; nothing if there is no further one at the moment.
    std::optional<LocatedRecord> Next();
    void End();
    void Poll();

    /// Whether any file exists.
    [[nodiscard]] bool HasFiles() const;

    /// Troubles since the last call.
    std::vector<ReadTrouble> TakeTroubles();

private:
    std::deque<RecordSequence> sequences;
};

}  // namespace TAVO::FileMigrateOrvane::Reader
