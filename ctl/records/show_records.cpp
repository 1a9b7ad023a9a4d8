#include "show_records.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <utility>

#include "advice.h"
#include "reading_progress.h"
#include "record_comparison.h"
#include "record_files.h"
#include "record_output.h"
#include "record_summary.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr int POLL_INTERVAL = 200;  // ms
constexpr std::size_t FORMER_RECORDS = 10;

enum class Rotated { LeftOut, Included };

/// The machine's name: the first line of the file `hostFrom` in the directory, or the directory's own name.
std::string HostOf(const std::string& directory, const std::string& hostFrom) {
    const std::filesystem::path path = std::filesystem::path(directory).lexically_normal();
    std::string host = (path.has_filename() ? path : path.parent_path()).filename();
    if (!hostFrom.empty()) {
        std::ifstream(path / hostFrom) >> host;
    }
    return host;
}

/// The width of the column with the machines' names.
std::size_t HostWidth(const RecordsOptions& options) {
    std::size_t width = 0;
    for (const std::string& directory : options.directories) {
        width = std::max(width, Printable(HostOf(directory, options.hostFrom)).size());
    }
    return width;
}

std::vector<Reader::RecordPath> PathsOf(const RecordsOptions& options, Rotated rotated) {
    std::vector<Reader::RecordPath> paths;
    for (const std::string& file : options.files) {
        paths.push_back({file, /*mayBeMissing=*/false, rotated == Rotated::Included});
    }
    for (const std::string& directory : options.directories) {
        for (Reader::RecordPath& path : Reader::RecordPathsIn(directory, HostOf(directory, options.hostFrom))) {
            paths.push_back(std::move(path));
        }
    }
    return paths.empty() ? Reader::AllRecordPaths() : paths;
}

bool IsForbidden(const Reader::ReadTrouble& trouble) {
    return trouble.errorNumber == EACCES || trouble.errorNumber == EPERM;
}

std::string InWords(const Reader::ReadTrouble& trouble) {
    if (trouble.errorNumber != 0) {
        return ErrorText(trouble.errorNumber) + (IsForbidden(trouble) ? ": " + AccessHint(trouble.file) : "");
    }
    return "skipped " + std::to_string(trouble.skipped.length) + " bytes at offset " +
           std::to_string(trouble.skipped.offset) + ": " + Printable(trouble.excerpt) +
           (trouble.skipped.length > trouble.excerpt.size() ? "..." : "");
}

void ReportMissingFiles(const RecordsOptions& options) {
    if (!options.directories.empty()) {
        Complain("records", "there are no record files in these directories");
        return;
    }
    std::string files;
    for (const char* file : RECORD_FILES) {
        files += std::string("\n  ") + file;
    }
    Complain("records", "there are no records; none of these files exists:" + files +
                            "\nThe daemon creates the files, but not their directories.");
}

/// Says why no record was shown.
/// @param left  the number of records that the filter left out
void ReportNothingShown(const RecordsOptions& options, const Reader::RecordStream& stream, const RecordOutput& output,
                        bool isReadable, std::size_t left) {
    if (isReadable && !stream.HasFiles()) {
        ReportMissingFiles(options);
    } else if (!output.HasShown() && left > 0) {
        Complain("records", std::to_string(left) + (left == 1 ? " record" : " records") + ", none of them matches");
    }
}

std::optional<Reader::LocatedRecord> NextWanted(Reader::RecordStream& stream, const RecordFilter& filter) {
    std::optional<Reader::LocatedRecord> next = stream.Next();
    while (next && !Matches(filter, next->record)) {
        next = stream.Next();
    }
    return next;
}

ExitStatus WriteFailure() {
    Complain("records", "cannot write to standard output");
    return ExitStatus::Failed;
}

void ShowAll(const std::deque<Reader::LocatedRecord>& records, RecordOutput& output) {
    for (const Reader::LocatedRecord& located : records) {
        output.MakeRoomFor(located.record);
    }
    for (const Reader::LocatedRecord& located : records) {
        output.Show(located);
    }
}

/// Prints or counts the records that match. Keeps them until the end if only the last ones are wanted, or the newest
/// first.
/// @return the number of records that the filter left out
std::size_t ShowMatching(Reader::RecordStream& stream, const RecordsOptions& options, RecordOutput& output) {
    const bool keeps = !options.isSummary && (options.lastCount > 0 || options.isReversed);
    const bool isQuiet = options.isSummary || options.form == Form::Html || keeps || isatty(STDOUT_FILENO) == 0;
    ReadingProgress progress(options.directories.size() > 1 && isQuiet && isatty(STDERR_FILENO) == 1);
    std::size_t left = 0;
    std::deque<Reader::LocatedRecord> kept;
    while (std::optional<Reader::LocatedRecord> next = options.isSummary ? stream.NextInAnyOrder() : stream.Next()) {
        progress.Count(stream);
        if (!Matches(options.filter, next->record)) {
            ++left;
        } else if (keeps) {
            kept.push_back(std::move(*next));
            if (options.lastCount > 0 && kept.size() > options.lastCount) {
                kept.pop_front();
            }
        } else {
            output.Show(*next);
        }
    }
    if (options.isReversed) {
        std::ranges::reverse(kept);
    }
    ShowAll(kept, output);
    return left;
}

void ShowFormer(Reader::RecordStream& stream, RecordOutput& output, const RecordFilter& filter) {
    std::deque<Reader::LocatedRecord> former;
    while (std::optional<Reader::LocatedRecord> next = NextWanted(stream, filter)) {
        former.push_back(std::move(*next));
        if (former.size() > FORMER_RECORDS) {
            former.pop_front();
        }
    }
    ShowAll(former, output);
}

/// Waits until the next poll. False if standard output is a pipe without a reader or a closed terminal.
bool Wait() {
    pollfd out{STDOUT_FILENO, 0, 0};
    return poll(&out, 1, POLL_INTERVAL) <= 0;
}

/// The counts of the earlier records in a directory. The filter's time does not apply to them.
/// @return nothing if a file could not be read, which was reported
std::optional<GroupCounts> CountRecordsIn(const std::string& directory, const RecordsOptions& options) {
    RecordFilter filter = options.filter;
    filter.since.clear();
    filter.until.clear();
    Reader::RecordStream stream(Reader::RecordPathsIn(directory, HostOf(directory, options.hostFrom)),
                                Reader::Reading::Once);
    RecordSummary summary(options.by);
    while (const std::optional<Reader::LocatedRecord> next = stream.NextInAnyOrder()) {
        if (Matches(filter, next->record)) {
            summary.Add(*next);
        }
    }
    if (!ReportTroubles(stream)) {
        return std::nullopt;
    }
    if (!stream.HasFiles()) {
        Complain(Printable(directory), "there are no record files in this directory");
        return std::nullopt;
    }
    return summary.Counts();
}

std::optional<GroupCounts> CountsBefore(const RecordsOptions& options) {
    if (std::filesystem::is_directory(options.against)) {
        return CountRecordsIn(options.against, options);
    }
    std::string why;
    std::optional<GroupCounts> counts = ReadSummary(options.against, options.by, why);
    if (!counts) {
        Complain(Printable(options.against), why);
    }
    return counts;
}

}  // namespace

bool ReportTroubles(Reader::RecordStream& stream) {
    bool isReadable = true;
    // A directory that may not be searched is reported once, not for each of its files.
    std::set<std::string> obstacles;
    for (const Reader::ReadTrouble& trouble : stream.TakeTroubles()) {
        isReadable = isReadable && trouble.errorNumber == 0;
        const std::string what = IsForbidden(trouble) ? ObstacleTo(trouble.file) : trouble.file;
        if (!IsForbidden(trouble) || obstacles.insert(what).second) {
            Complain(Printable(what), InWords(trouble));
        }
    }
    return isReadable;
}

ExitStatus ShowRecords(const RecordsOptions& options) {
    std::optional<GroupCounts> before;
    if (!options.against.empty()) {
        before = CountsBefore(options);
        if (!before) {
            return ExitStatus::Failed;
        }
    }
    Reader::RecordStream stream(PathsOf(options, Rotated::LeftOut), Reader::Reading::Once);
    RecordOutput output(options, HostWidth(options));
    const std::size_t left = ShowMatching(stream, options, output);
    if (!output.Flush()) {
        return WriteFailure();
    }
    const bool isReadable = ReportTroubles(stream);
    ReportNothingShown(options, stream, output, isReadable, left);
    output.ShowSummary(before, isReadable && left == 0);
    if (!output.Flush()) {
        return WriteFailure();
    }
    return isReadable ? ExitStatus::Success : ExitStatus::Failed;
}

ExitStatus FollowRecords(const RecordsOptions& options) {
    Reader::RecordStream stream(PathsOf(options, Rotated::Included), Reader::Reading::Following);
    RecordOutput output(options, HostWidth(options));
    ShowFormer(stream, output, options.filter);
    if (ReportTroubles(stream) && !stream.HasFiles()) {
        ReportMissingFiles(options);
    }
    while (output.Flush()) {
        (void)ReportTroubles(stream);
        if (!Wait()) {
            return ExitStatus::Success;
        }
        stream.Poll();
        while (const std::optional<Reader::LocatedRecord> next = NextWanted(stream, options.filter)) {
            output.Show(*next);
        }
    }
    return WriteFailure();
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
