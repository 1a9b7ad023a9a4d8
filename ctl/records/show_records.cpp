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
#include <utility>

#include "advice.h"
#include "record_files.h"
#include "record_json.h"
#include "record_summary.h"
#include "record_table.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr int POLL_INTERVAL = 200;  // ms
constexpr std::size_t FORMER_RECORDS = 10;
constexpr std::size_t OUTPUT_BUFFER = std::size_t{1} << 16U;

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

/// Prints the selected records.
class Output {
public:
    explicit Output(const RecordsOptions& wanted)
        : options(wanted), style{MayColour(STDOUT_FILENO), wanted.isVerbose}, summary(wanted.by) {
        static std::array<char, OUTPUT_BUFFER> buffer;  // used until the program ends
        for (const std::string& directory : wanted.directories) {
            hostWidth = std::max(hostWidth, Printable(HostOf(directory, wanted.hostFrom)).size());
        }
        (void)std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
    }

    void Show(const Reader::LocatedRecord& located) {
        hasShown = true;
        if (options.isSummary) {
            summary.Add(located);
        } else if (options.isJson) {
            PrintJsonLine(ToJson(located));
        } else {
            const std::string text = RecordInWords(located.record, style);
            std::string host = Printable(located.host);
            host.resize(std::max(host.size(), hostWidth), ' ');
            Write(host.empty() ? text : host + "  " + text);
        }
    }

    /// @param mayBeEmpty  whether to print a summary of no records
    void ShowSummary(bool mayBeEmpty) const {
        if (options.isJson) {
            PrintJsonLine(summary.ToJson());
        } else if (hasShown || mayBeEmpty) {
            Write(summary.Text());
        }
    }

    [[nodiscard]] bool HasShown() const { return hasShown; }

    /// False if standard output was closed or the disk is full.
    [[nodiscard]] static bool Flush() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }

private:
    static void Write(const std::string& text) { (void)std::fwrite(text.data(), 1, text.size(), stdout); }

    const RecordsOptions& options;
    std::size_t hostWidth = 0;
    TableStyle style;
    RecordSummary summary;
    bool hasShown = false;
};

std::string InWords(const Reader::ReadTrouble& trouble) {
    if (trouble.errorNumber != 0) {
        const bool isForbidden = trouble.errorNumber == EACCES || trouble.errorNumber == EPERM;
        return ErrorText(trouble.errorNumber) + (isForbidden ? ": " + AccessHint(trouble.file) : "");
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
void ReportNothingShown(const RecordsOptions& options, const Reader::RecordStream& stream, const Output& output,
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

void ShowFormer(Reader::RecordStream& stream, Output& output, const RecordFilter& filter) {
    std::deque<Reader::LocatedRecord> former;
    while (std::optional<Reader::LocatedRecord> next = NextWanted(stream, filter)) {
        former.push_back(std::move(*next));
        if (former.size() > FORMER_RECORDS) {
            former.pop_front();
        }
    }
    for (const Reader::LocatedRecord& located : former) {
        output.Show(located);
    }
}

/// Waits until the next poll. False if standard output is a pipe without a reader or a closed terminal.
bool Wait() {
    pollfd out{STDOUT_FILENO, 0, 0};
    return poll(&out, 1, POLL_INTERVAL) <= 0;
}

}  // namespace

bool ReportTroubles(Reader::RecordStream& stream) {
    bool isReadable = true;
    for (const Reader::ReadTrouble& trouble : stream.TakeTroubles()) {
        isReadable = isReadable && trouble.errorNumber == 0;
        Complain(Printable(trouble.file), InWords(trouble));
    }
    return isReadable;
}

ExitStatus ShowRecords(const RecordsOptions& options) {
    Reader::RecordStream stream(PathsOf(options, Rotated::LeftOut), Reader::Reading::Once);
    Output output(options);
    std::size_t left = 0;
    std::deque<Reader::LocatedRecord> kept;  // for the last ones, or to reverse them
    const bool keeps = options.lastCount > 0 || options.isReversed;
    while (std::optional<Reader::LocatedRecord> next = options.isSummary ? stream.NextInAnyOrder() : stream.Next()) {
        if (!Matches(options.filter, next->record)) {
            ++left;
        } else if (keeps && !options.isSummary) {
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
    for (const Reader::LocatedRecord& located : kept) {
        output.Show(located);
    }
    if (!Output::Flush()) {
        return WriteFailure();
    }
    const bool isReadable = ReportTroubles(stream);
    ReportNothingShown(options, stream, output, isReadable, left);
    if (options.isSummary) {
        output.ShowSummary(isReadable && left == 0);
    }
    if (!Output::Flush()) {
        return WriteFailure();
    }
    return isReadable ? ExitStatus::Success : ExitStatus::Failed;
}

ExitStatus FollowRecords(const RecordsOptions& options) {
    Reader::RecordStream stream(PathsOf(options, Rotated::Included), Reader::Reading::Following);
    Output output(options);
    ShowFormer(stream, output, options.filter);
    if (ReportTroubles(stream) && !stream.HasFiles()) {
        ReportMissingFiles(options);
    }
    while (Output::Flush()) {
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
