#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "advice.h"
#include "answer.h"
#include "kernel_log_dumps.h"
#include "record_files.h"
#include "record_json.h"
#include "record_table.h"
#include "records_commands.h"
#include "show_records.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr const char* FOOTER =
    "A dump holds the lines of the kernel log about the daemon at the time of a\n"
    "failure. It is listed with the record of that failure.\n"
    "\n"
    "Example:\n"
    "  orvanectl dumps MOVE@20261121101530";

constexpr std::size_t NAME_WIDTH = 36;  // RESTORECON_FROMPARENT and the time
constexpr std::size_t COLUMN_WIDTH = 9;

struct Options {
    std::string name;
    std::string copy;  ///< a copied record directory to read; empty for this machine's files
    bool isJson = false;

    [[nodiscard]] std::string Directory() const {
        return copy.empty() ? DUMP_DIRECTORY : copy + "/" + std::filesystem::path(DUMP_DIRECTORY).filename().native();
    }
};

/// The records for which the daemon writes dumps.
struct DumpedRecords {
    std::vector<Reader::Record> records;
    bool isWhole = true;  ///< false if a file could not be read, which was reported

    [[nodiscard]] ExitStatus Status() const { return isWhole ? ExitStatus::Success : ExitStatus::Failed; }

    /// The last record that the dump may belong to; null if there is none.
    [[nodiscard]] const Reader::Record* OwnerOf(const Reader::KernelLogDump& dump) const {
        const auto owner = std::find_if(records.rbegin(), records.rend(), [&dump](const Reader::Record& record) {
            return Reader::MayBelong(dump, record);
        });
        return owner == records.rend() ? nullptr : &*owner;
    }
};

DumpedRecords ReadDumpedRecords(const Options& options) {
    Reader::RecordStream stream(
        options.copy.empty() ? Reader::AllRecordPaths() : Reader::RecordPathsIn(options.copy, /*host=*/""),
        Reader::Reading::Once);
    DumpedRecords dumped;
    while (std::optional<Reader::LocatedRecord> next = stream.Next()) {
        if (Reader::IsDumped(next->record)) {
            dumped.records.push_back(std::move(next->record));
        }
    }
    dumped.isWhole = ReportTroubles(stream);
    return dumped;
}

std::vector<std::string_view> LinesOf(std::string_view content) {
    std::vector<std::string_view> lines;
    while (!content.empty()) {
        const std::size_t end = std::min(content.find('\n'), content.size());
        lines.push_back(content.substr(0, end));
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    return lines;
}

Json ToJson(const Reader::KernelLogDump& dump, const Reader::Record* owner) {
    Json object;
    PutText(object, "name", dump.name);
    PutText(object, "type", dump.type);
    object["time"] = TimeText(dump.times, 'T');
    object["size"] = dump.content.size();
    object["lines"] = LinesOf(dump.content).size();
    object["record"] = owner == nullptr ? Json() : JsonLine(*owner);
    return object;
}

/// @param isKnown  whether all records could be read
std::string InWords(const Reader::KernelLogDump& dump, const Reader::Record* owner, bool isKnown) {
    const std::size_t lines = LinesOf(dump.content).size();
    const auto column = [](std::string text, std::size_t width) {
        text.resize(std::max(text.size(), width), ' ');
        return text + "  ";
    };
    std::string text = column(Printable(dump.name), NAME_WIDTH) +
                       column(std::to_string(dump.content.size()) + " B", COLUMN_WIDTH) +
                       column(std::to_string(lines) + (lines == 1 ? " line" : " lines"), COLUMN_WIDTH);
    if (owner == nullptr) {
        return text + (isKnown ? "no record\n" : "unknown record\n");
    }
    return text + RecordInWords(*owner, {});
}

std::string PathOf(const Options& options, const Reader::KernelLogDump& dump) {
    return options.Directory().append("/").append(dump.name);
}

/// Why a dump or the directory could not be read.
std::string Unreadable(const std::string& path, int errorNumber) {
    return ErrorText(errorNumber).append(": ").append(AccessHint(path));
}

void ReportUnreadable(const Options& options, const Reader::KernelLogDump& dump) {
    Complain(Printable(PathOf(options, dump)), Unreadable(PathOf(options, dump), dump.errorNumber));
}

/// Prints why there is nothing to show.
ExitStatus ReportFailure(const std::string& what, int errorNumber, std::string why, bool isJson) {
    Answer answer;
    answer.status = ExitStatus::Failed;
    answer.isOk = false;
    answer.message = std::move(why);
    PutError(answer.fields, errorNumber);
    Json object;
    object["command"] = "dumps";
    return Print(answer, what, std::move(object), isJson);
}

ExitStatus List(const std::vector<Reader::KernelLogDump>& dumps, const Options& options) {
    if (dumps.empty()) {
        Complain("dumps", "there are no dumps in " + options.Directory());
    }
    const DumpedRecords dumped = ReadDumpedRecords(options);
    ExitStatus status = dumped.Status();
    for (const Reader::KernelLogDump& dump : dumps) {
        const Reader::Record* owner = dumped.OwnerOf(dump);
        if (options.isJson) {
            PrintJsonLine(ToJson(dump, owner));
        } else {
            (void)std::fputs(InWords(dump, owner, dumped.isWhole).c_str(), stdout);
        }
        if (dump.errorNumber != 0) {
            ReportUnreadable(options, dump);
            status = ExitStatus::Failed;
        }
    }
    return status;
}

ExitStatus ShowJson(const Reader::KernelLogDump& dump, const Options& options) {
    const DumpedRecords dumped = ReadDumpedRecords(options);
    Json object = ToJson(dump, dumped.OwnerOf(dump));
    object["content"] = Json::array();
    for (const std::string_view line : LinesOf(dump.content)) {
        Json entry;
        PutText(entry, "line", line);
        object["content"].push_back(std::move(entry));
    }
    PrintJsonLine(object);
    return dumped.Status();
}

ExitStatus ShowText(const Reader::KernelLogDump& dump) {
    for (const std::string_view line : LinesOf(dump.content)) {
        (void)std::puts(Printable(line).c_str());
    }
    if (dump.content.empty()) {
        Complain(Printable(dump.name), "empty: the kernel log had no lines about the daemon");
    }
    return ExitStatus::Success;
}

ExitStatus ShowOne(const std::vector<Reader::KernelLogDump>& dumps, const Options& options) {
    std::string names;
    for (const Reader::KernelLogDump& dump : dumps) {
        if (dump.name != options.name) {
            names += "\n  " + Printable(dump.name);
            continue;
        }
        if (dump.errorNumber != 0) {
            return ReportFailure(Printable(PathOf(options, dump)), dump.errorNumber,
                                 Unreadable(PathOf(options, dump), dump.errorNumber), options.isJson);
        }
        return options.isJson ? ShowJson(dump, options) : ShowText(dump);
    }
    return ReportFailure(Printable(options.name), ENOENT,
                         "there is no such dump" + (names.empty() ? "" : "; the dumps are:" + names), options.isJson);
}

ExitStatus ShowDumps(const Options& options) {
    int err = 0;
    const std::string directory = options.Directory();
    const std::vector<Reader::KernelLogDump> dumps = Reader::KernelLogDumps(directory, err);
    if (err != 0) {
        return ReportFailure(directory, err, Unreadable(directory, err), options.isJson);
    }
    return options.name.empty() ? List(dumps, options) : ShowOne(dumps, options);
}

}  // namespace

void AddDumpsCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<Options>();
    CLI::App* parser = app.add_subcommand("dumps", "List the kernel-log dumps, or print one.");
    const auto check = [](const std::string& name) {
        return name.empty() || name.find('/') != std::string::npos
                   ? name + ": expected a name from the list, not a path"
                   : std::string();
    };
    parser->add_option("NAME", options->name, "the dump to print")->check(CLI::Validator(check, ""))->type_name("");
    parser->add_option("--directory", options->copy, "read the records and dumps copied to this directory")
        ->check(CLI::ExistingDirectory.description(""))
        ->type_name("DIR");
    parser->add_flag("--json", options->isJson, "print one JSON object per line");
    parser->footer(FOOTER);
    parser->callback([options, &chosen] { chosen = [options] { return ShowDumps(*options); }; });
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
