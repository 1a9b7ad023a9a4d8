// One record file that is read piece by piece from its begin to its end, which may still move: a huge file takes no
// more memory than a small one, and a record that is being written is waited for. Owns its descriptor. One thread.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "record_parser.h"

namespace TAVO::FileMigrateOrvane {

inline constexpr const char* STANDARD_INPUT = "-";

/// A record and the file that it stands in; the record's offset is the file's.
struct LocatedRecord {
    std::string file;
    Record record;
};

/// What could not be read: a file, when there is an error number, else bytes that are no record.
struct ReadTrouble {
    std::string file;
    int errorNumber = 0;
    SkippedBytes skipped;
    std::string excerpt;  ///< the first of the skipped bytes
};

/// What reading adds to.
struct ReadResult {
    std::deque<LocatedRecord> records;
    std::vector<ReadTrouble> troubles;
};

class RecordInput {
public:
    /// STANDARD_INPUT or a path. Null with `err` set when it cannot be opened; a directory cannot.
    [[nodiscard]] static std::unique_ptr<RecordInput> Open(const std::string& path, int& err);
    ~RecordInput();
    RecordInput(const RecordInput&) = delete;
    RecordInput& operator=(const RecordInput&) = delete;

    enum class Progress { Read, AtEnd, Failed };

    /// Reads the next piece and adds what it holds. A record that is not whole stays for the next piece.
    /// @param err  set when reading failed
    Progress ReadOn(ReadResult& result, int& err);

    /// Adds what stayed: nothing more will come.
    void Finish(ReadResult& result);

    /// For a file that is being written, after its end was reached: finishes what stayed without anything following
    /// for a few looks, and begins anew when the file was cut.
    void LookAgain(ReadResult& result);

    [[nodiscard]] int Fd() const { return fd; }

private:
    RecordInput(std::string path, int openFd) : file(std::move(path)), fd(openFd) {}
    void Parse(Input input, ReadResult& result);
    void AddSkipped(const SkippedBytes& skipped, ReadResult& result) const;

    std::string file;
    int fd;
    std::string rest;        ///< read, and not yet told to be records or none
    std::size_t offset = 0;  ///< of `rest` in the file
    int quietLooks = 0;      ///< looks since something was read
};

}  // namespace TAVO::FileMigrateOrvane
