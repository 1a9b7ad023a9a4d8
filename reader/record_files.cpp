#include "record_files.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string_view>

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

namespace fs = std::filesystem;

/// With more files than this, each is opened late and read in small pieces.
constexpr std::size_t FEW_FILES = 16;
constexpr std::size_t SMALL_PIECE = std::size_t{8} * 1024;

/// Whether `name` is `stem`, "_", 14 digits, ".txt".
bool IsRotatedName(std::string_view name, std::string_view stem) {
    if (name.size() != stem.size() + 1 + TIME_DIGITS + RECORD_FILE_SUFFIX.size() || !name.starts_with(stem) ||
        name[stem.size()] != ROTATION_SEPARATOR || !name.ends_with(RECORD_FILE_SUFFIX)) {
        return false;
    }
    return name.substr(stem.size() + 1, TIME_DIGITS).find_first_not_of("0123456789") == std::string_view::npos;
}

bool IsSameFile(const struct stat& st, const RecordInput& input) {
    struct stat own {};
    return fstat(input.Fd(), &own) == 0 && own.st_dev == st.st_dev && own.st_ino == st.st_ino;
}

}  // namespace

std::vector<std::string> RotatedFiles(const std::string& path, int& err) {
    std::vector<std::string> files;
    const fs::path file(path);
    if (file.extension() != RECORD_FILE_SUFFIX) {
        return files;
    }
    std::error_code error;
    const fs::path directory = file.has_parent_path() ? file.parent_path() : fs::path(".");
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        if (IsRotatedName(entry->path().filename().native(), file.stem().native())) {
            files.push_back((file.parent_path() / entry->path().filename()).native());
        }
    }
    if (error && error.value() != ENOENT) {
        err = error.value();
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<RecordPath> AllRecordPaths() {
    std::vector<RecordPath> paths;
    paths.reserve(RECORD_FILES.size());
    for (const char* file : RECORD_FILES) {
        paths.push_back({file, /*mayBeMissing=*/true, /*includesRotated=*/true});
    }
    return paths;
}

std::vector<RecordPath> RecordPathsIn(const std::string& directory, const std::string& host) {
    std::set<std::string> names;
    for (const char* file : RECORD_FILES) {
        names.insert(fs::path(file).filename().native());
    }
    std::vector<RecordPath> paths;
    paths.reserve(names.size());
    for (const std::string& name : names) {
        paths.push_back({(fs::path(directory) / name).native(), /*mayBeMissing=*/true, /*includesRotated=*/true, host});
    }
    return paths;
}

RecordSequence::RecordSequence(RecordPath toRead, Reading reading, bool late)
    : wanted(std::move(toRead)), isFollowing(reading == Reading::Following), opensLate(late) {
    AddSources();
}

LocatedRecord* RecordSequence::Peek() {
    while (result.records.empty() && !sources.empty() && ReadOn()) {
    }
    if (result.records.empty()) {
        return nullptr;
    }
    result.records.front().host = wanted.host;
    return &result.records.front();
}

void RecordSequence::Poll() {
    if (!sources.empty()) {
        Source& current = sources.back();
        struct stat st {};
        if (stat(wanted.path.c_str(), &st) == 0 && IsSameFile(st, *current.input)) {
            current.input->Poll(result);
            return;
        }
        current.isFinal = true;  // it was renamed; its remaining records are still to be read
    }
    AddSources();
}

/// Opens the file before listing the rotated ones. If it is rotated in between, it is still read as the file.
void RecordSequence::AddSources() {
    std::unique_ptr<RecordInput> current = opensLate ? nullptr : TryOpen(wanted.path);
    if (wanted.includesRotated) {
        AddRotated(current.get());
    }
    if (current != nullptr || opensLate) {
        sources.push_back({wanted.path, std::move(current), /*isFinal=*/!isFollowing});
    }
}

/// @param current  the file itself, already open; null if it is missing
void RecordSequence::AddRotated(const RecordInput* current) {
    const RecordInput* former = sources.empty() ? nullptr : sources.back().input.get();
    int err = 0;
    for (const std::string& path : RotatedFiles(wanted.path, err)) {
        struct stat st {};
        if (stat(path.c_str(), &st) != 0) {
            continue;  // replaced by one rotated in the same second
        }
        if (current != nullptr && IsSameFile(st, *current)) {
            break;  // rotated meanwhile: it and later files are left for the next poll
        }
        const bool isNew = seen.emplace(st.st_dev, st.st_ino, st.st_mtim.tv_sec, st.st_mtim.tv_nsec).second;
        if (isNew && (former == nullptr || !IsSameFile(st, *former))) {
            sources.push_back({path, nullptr});
        }
    }
    if (err != 0) {
        Report(fs::path(wanted.path).parent_path().native(), err);
    }
}

std::unique_ptr<RecordInput> RecordSequence::TryOpen(const std::string& path) {
    int err = 0;
    std::unique_ptr<RecordInput> input =
        opensLate ? RecordInput::Open(path, err, SMALL_PIECE) : RecordInput::Open(path, err);
    const bool mayBeMissing = wanted.mayBeMissing || hasFiles;  // it is missing between a rotation and the next record
    if (input == nullptr && (err != ENOENT || !mayBeMissing)) {
        Report(path, err);
    }
    hasFiles = hasFiles || input != nullptr;
    return input;
}

/// Whether more may be available without waiting.
bool RecordSequence::ReadOn() {
    Source& front = sources.front();
    if (front.input == nullptr) {
        front.input = TryOpen(front.path);
    }
    int err = 0;
    if (front.input != nullptr) {
        const RecordInput::Progress progress = front.input->ReadOn(result, err);
        if (opensLate) {
            front.input->Release();
        }
        if (progress == RecordInput::Progress::Read) {
            return true;
        }
        if (progress == RecordInput::Progress::Failed) {
            Report(front.path, err);
        }
        if (!front.isFinal) {
            return false;
        }
        front.input->Finish(result);
    }
    sources.pop_front();
    return true;
}

void RecordSequence::Report(const std::string& path, int err) {
    if (reported.emplace(path, err).second) {
        result.troubles.push_back({path, err, {}, {}});
    }
}

RecordStream::RecordStream(const std::vector<RecordPath>& paths, Reading reading) {
    for (const RecordPath& path : paths) {
        const bool isLate = reading == Reading::Once && paths.size() > FEW_FILES && path.path != STANDARD_INPUT;
        idle.push_back(sequences.size());
        sequences.emplace_back(path, reading, isLate);
    }
}

std::optional<LocatedRecord> RecordStream::Next() {
    if (std::exchange(hasNews, false)) {
        for (const std::size_t index : std::exchange(idle, {})) {
            PushHead(index);
        }
    }
    if (heads.empty()) {
        return std::nullopt;
    }
    const std::size_t earliest = heads.top().second;
    heads.pop();
    std::optional<LocatedRecord> next(std::move(*sequences[earliest].Peek()));
    sequences[earliest].Pop();
    PushHead(earliest);
    return next;
}

void RecordStream::PushHead(std::size_t index) {
    if (const LocatedRecord* head = sequences[index].Peek()) {
        heads.emplace(head->record.times, index);
    } else {
        idle.push_back(index);
    }
}

std::optional<LocatedRecord> RecordStream::NextInAnyOrder() {
    for (; current < sequences.size(); ++current) {
        if (LocatedRecord* head = sequences[current].Peek()) {
            std::optional<LocatedRecord> next(std::move(*head));
            sequences[current].Pop();
            return next;
        }
    }
    return std::nullopt;
}

void RecordStream::Poll() {
    hasNews = true;
    for (RecordSequence& sequence : sequences) {
        sequence.Poll();
    }
}

bool RecordStream::HasFiles() const {
    return std::any_of(sequences.begin(), sequences.end(), [](const auto& sequence) { return sequence.HasFiles(); });
}

std::vector<ReadTrouble> RecordStream::TakeTroubles() {
    std::vector<ReadTrouble> troubles;
    for (RecordSequence& sequence : sequences) {
        std::vector<ReadTrouble> some = sequence.TakeTroubles();
        std::move(some.begin(), some.end(), std::back_inserter(troubles));
    }
    return troubles;
}

}  // namespace TAVO::FileMigrateOrvane::Reader
