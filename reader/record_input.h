// One record file, read in pieces from its beginning to its end, which may still grow. A huge file needs no more memory
// than a small one. A record that is being written is not returned before it is complete. Owns its descriptor; used by
// one thread.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "record_parser.h"

namespace TAVO::FileMigrateOrvane::Reader {

inline constexpr const char* STANDARD_INPUT = "-";

/// A record and its file. The record's offset is its position in the file.
struct LocatedRecord {
    std::string host;  ///< the machine, if the file came from a named one
    std::string file;
    Record record;
};

/// Something that could not be read: a file, if there is an error number; otherwise bytes that belong to no record.
struct ReadTrouble {
    std::string file;
    int errorNumber = 0;
    SkippedBytes skipped;
    std::string excerpt;  ///< the first of the skipped bytes
};

/// What the read methods add their results to.
struct ReadResult {
    std::deque<LocatedRecord> records;
    std::vector<ReadTrouble> troubles;
};

class RecordInput {
public:
    /// @param path  STANDARD_INPUT or a file; a directory is an error
    /// @return null, with `err` set, if it cannot be opened
    /// @param pieceSize  bytes to read at a time
    [[nodiscard]] static std::unique_ptr<RecordInput> Open(const std::string& path, int& err,
                                                           std::size_t pieceSize = 256 * std::size_t{1024});
    ~RecordInput();
    RecordInput(const RecordInput&) = delete;
    RecordInput& operator=(const RecordInput&) = delete;

    enum class Progress { Read, AtEnd, Failed };

    /// Reads the next piece and adds its records. An incomplete record is kept for the next piece.
    /// @param err  set if reading failed
    Progress ReadOn(ReadResult& result, int& err);

    /// Adds the record that was kept, as far as it was written. Call it when the file will not grow any more.
    void Finish(ReadResult& result);

    /// For a file that is being written, after its end was reached. If the incomplete record has not grown for a few
    /// calls, it is added as it is. If the file was truncated, reading starts again.
    void Poll(ReadResult& result);

    /// Closes the file until the next ReadOn, so that more files can be read in turn than there are descriptors. Call
    /// it only for a file that is not standard input.
    void Release();

    [[nodiscard]] int Fd() const { return fd; }

private:
    RecordInput(std::string path, int openFd, std::size_t pieceSize)
        : file(std::move(path)), fd(openFd), piece(pieceSize) {}
    bool Reopen();
    void Parse(Input input, ReadResult& result);
    void AddSkipped(const SkippedBytes& skipped, ReadResult& result) const;

    std::string file;
    int fd;  ///< -1 while released
    std::size_t piece;
    std::string rest;        ///< bytes that were read but not yet consumed by the parser
    std::size_t offset = 0;  ///< position of `rest` in the file
    int quietPolls = 0;      ///< polls since something was read
};

}  // namespace TAVO::FileMigrateOrvane::Reader
