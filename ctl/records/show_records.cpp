#include "show_records.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <deque>
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

std::vector<Reader::RecordPath> PathsOf(const RecordsOptions& options, Rotated rotated) {
    std::vector<Reader::RecordPath> paths;
    for (const std::string& file : options.files) {
        paths.push_back({file, /*mayBeMissing=*/false, rotated == Rotated::Included});
    }
    return paths.empty() ? Reader::AllRecordPaths() : paths;
}

/// Prints the selected records.
class Output {
public:
    explicit Output(const RecordsOptions& wanted) : options(wanted), style{MayColour(STDOUT_FILENO), wanted.isVerbose} {
        static std::array<char, OUTPUT_BUFFER> buffer;  // used until the program ends
        (void)std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
    }

    void Show(const Reader::LocatedRecord& located) {
        hasShown = true;
        if (options.isSummary) {
            summary.Add(located.record);
        } else if (options.isJson) {
            PrintJsonLine(ToJson(located));
        } else {
            Write(RecordInWords(located.record, style));
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

void ReportMissingFiles() {
    std::string files;
    for (const char* file : RECORD_FILES) {
        files += std::string("\n  ") + file;
    }
    Complain("records", "there are no records; none of these files exists:" + files +
                            "\nThe daemon creates the files, but not their directories.");
}

/// Says why no record was shown.
/// @param left  the number of records that the filter left out
void ReportNothingShown(const Reader::RecordStream& stream, const Output& output, bool isReadable, std::size_t left) {
    if (isReadable && !stream.HasFiles()) {
        ReportMissingFiles();
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
    Reader::RecordStream stream(PathsOf(options, Rotated::LeftOut));
    stream.End();
    Output output(options);
    std::size_t left = 0;
    while (const std::optional<Reader::LocatedRecord> next = stream.Next()) {
        if (Matches(options.filter, next->record)) {
            output.Show(*next);
        } else {
            ++left;
        }
    }
    if (!Output::Flush()) {
        return WriteFailure();
    }
    const bool isReadable = ReportTroubles(stream);
    ReportNothingShown(stream, output, isReadable, left);
    if (options.isSummary) {
        output.ShowSummary(isReadable && left == 0);
    }
    if (!Output::Flush()) {
        return WriteFailure();
    }
    return isReadable ? ExitStatus::Success : ExitStatus::Failed;
}

ExitStatus FollowRecords(const RecordsOptions& options) {
    Reader::RecordStream stream(PathsOf(options, Rotated::Included));
    Output output(options);
    ShowFormer(stream, output, options.filter);
    if (ReportTroubles(stream) && !stream.HasFiles()) {
        ReportMissingFiles();
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
