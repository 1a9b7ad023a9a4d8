#include "record_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

constexpr std::size_t EXCERPT = 40;
/// The daemon writes a record with one call. If it is incomplete after this many polls, a full disk or a crash cut it.
constexpr int PATIENT_POLLS = 2;

}  // namespace

std::unique_ptr<RecordInput> RecordInput::Open(const std::string& path, int& err, std::size_t pieceSize) {
    const int fd = path == STANDARD_INPUT ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        err = errno;
        return nullptr;
    }
    std::unique_ptr<RecordInput> input(new RecordInput(path, fd, pieceSize));
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        err = EISDIR;
        return nullptr;
    }
    return input;
}

RecordInput::~RecordInput() {
    Release();
}

void RecordInput::Release() {
    if (fd >= 0) {
        (void)close(std::exchange(fd, -1));
    }
}

bool RecordInput::Reopen() {
    fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    return fd >= 0 && lseek(fd, static_cast<off_t>(offset + rest.size()), SEEK_SET) >= 0;
}

RecordInput::Progress RecordInput::ReadOn(ReadResult& result, int& err) {
    if (fd < 0 && !Reopen()) {
        err = errno;
        return Progress::Failed;
    }
    const std::size_t known = rest.size();
    // Read twice as much each time, so that bytes which stay undecided for long are not parsed too often.
    rest.resize(known + std::max(piece, known));
    const ssize_t count = read(fd, rest.data() + known, rest.size() - known);
    const int readError = errno;
    rest.resize(known + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0) {
        err = readError;
        return Progress::Failed;
    }
    if (count == 0) {
        return Progress::AtEnd;
    }
    quietPolls = 0;
    Parse(Input::Growing, result);
    return Progress::Read;
}

void RecordInput::Finish(ReadResult& result) {
    Parse(Input::Whole, result);
    offset += rest.size();
    rest.clear();
}

void RecordInput::Poll(ReadResult& result) {
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        return;
    }
    const std::size_t known = offset + rest.size();
    if (std::cmp_less(st.st_size, known)) {
        Finish(result);
        offset = 0;
        (void)lseek(fd, 0, SEEK_SET);  // a file with a size is seekable
    } else if (std::cmp_equal(st.st_size, known) && ++quietPolls == PATIENT_POLLS) {
        Finish(result);
    }
}

void RecordInput::Parse(Input input, ReadResult& result) {
    ParsedRecords parsed = ParseRecords(rest, input);
    for (const SkippedBytes& skipped : parsed.skipped) {
        AddSkipped(skipped, result);
    }
    for (Record& record : parsed.records) {
        record.offset += offset;
        result.records.push_back({{}, file, std::move(record)});
    }
    rest.erase(0, parsed.consumed);
    offset += parsed.consumed;
}

/// A skipped range that continues in the next piece is reported once.
void RecordInput::AddSkipped(const SkippedBytes& skipped, ReadResult& result) const {
    const std::size_t begin = offset + skipped.offset;
    if (!result.troubles.empty()) {
        ReadTrouble& last = result.troubles.back();
        if (last.errorNumber == 0 && last.file == file && last.skipped.offset + last.skipped.length == begin) {
            last.skipped.length += skipped.length;
            return;
        }
    }
    result.troubles.push_back(
        {file, 0, {begin, skipped.length}, rest.substr(skipped.offset, std::min(skipped.length, EXCERPT))});
}

}  // namespace TAVO::FileMigrateOrvane::Reader
