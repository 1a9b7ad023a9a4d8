#include "dumps_command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "access_hint.h"
#include "answer.h"
#include "record_json.h"
#include "record_table.h"
#include "record_time.h"
#include "explain.h"
#include "kernel_log_dumps.h"
#include "record_files.h"
#include "show_records.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr const char* FOOTER =
    "A dump holds the kernel log's lines about the daemon, taken right after a failure. The record\n"
    "shown with it is the last one before it that the daemon makes a dump for.\n"
    "\n"
    "Example:\n"
    "  orvanectl dumps MOVE@20261121101530";

struct Options {
    std::string name;
    bool isJson = false;
};

/// The records that the daemon makes dumps for.
struct DumpedRecords {
    std::vector<Record> records;
    bool isWhole = true;  ///< false: a file could not be read, and it was told

    [[nodiscard]] ExitStatus Status() const { return isWhole ? ExitStatus::Success : ExitStatus::Failed; }

    /// The last one that the dump may belong to; null when there is none.
    [[nodiscard]] const Record* OwnerOf(const KernelLogDump& dump) const {
        const auto owner = std::find_if(records.rbegin(), records.rend(),
                                        [&dump](const Record& record) { return MayBelong(dump, record); });
        return owner == records.rend() ? nullptr : &*owner;
    }
};

DumpedRecords ReadDumpedRecords() {
    RecordStream stream(AllRecordPaths());
    stream.End();
    DumpedRecords dumped;
    while (std::optional<LocatedRecord> next = stream.Next()) {
        if (IsDumped(next->record)) {
            dumped.records.push_back(std::move(next->record));
        }
    }
    dumped.isWhole = TellTroubles(stream);
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

Json ToJson(const KernelLogDump& dump, const Record* owner) {
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
std::string InWords(const KernelLogDump& dump, const Record* owner, bool isKnown) {
    const std::size_t lines = LinesOf(dump.content).size();
    std::string text = Printable(dump.name) + "  " + std::to_string(dump.content.size()) + " B  " +
                       std::to_string(lines) + (lines == 1 ? " line  " : " lines  ");
    if (owner == nullptr) {
        return text + (isKnown ? "no record of it\n" : "record not known\n");
    }
    return text + TimeText(owner->times, ' ') + "  " + ErrorColumn(*owner) + "  " +
           Printable(FailureInWords(owner->type)) + "  " + ObjectsColumn(*owner) + "\n";
}

std::string PathOf(const KernelLogDump& dump) {
    return std::string(DUMP_DIRECTORY).append("/").append(dump.name);
}

/// Why a dump could not be read, or their directory not be listed.
std::string Unreadable(const std::string& path, int errorNumber) {
    return ErrorText(errorNumber).append(": ").append(AccessHint(path));
}

bool IsReadable(const KernelLogDump& dump) {
    if (dump.errorNumber != 0) {
        Complain(Printable(PathOf(dump)), Unreadable(PathOf(dump), dump.errorNumber));
    }
    return dump.errorNumber == 0;
}

/// Tells why there is nothing to show.
ExitStatus Fail(const std::string& what, int errorNumber, std::string why, bool isJson) {
    Answer answer;
    answer.status = ExitStatus::Failed;
    answer.isOk = false;
    answer.message = std::move(why);
    PutError(answer.fields, errorNumber);
    Json object;
    object["command"] = "dumps";
    return Tell(answer, what, std::move(object), isJson);
}

ExitStatus List(const std::vector<KernelLogDump>& dumps, bool isJson) {
    if (dumps.empty()) {
        Complain("dumps", std::string("there is none in ") + DUMP_DIRECTORY);
    }
    const DumpedRecords dumped = ReadDumpedRecords();
    ExitStatus status = dumped.Status();
    for (const KernelLogDump& dump : dumps) {
        const Record* owner = dumped.OwnerOf(dump);
        if (isJson) {
            PrintJsonLine(ToJson(dump, owner));
        } else {
            (void)std::fputs(InWords(dump, owner, dumped.isWhole).c_str(), stdout);
        }
        status = IsReadable(dump) ? status : ExitStatus::Failed;
    }
    return status;
}

ExitStatus ShowJson(const KernelLogDump& dump) {
    const DumpedRecords dumped = ReadDumpedRecords();
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

ExitStatus ShowText(const KernelLogDump& dump) {
    for (const std::string_view line : LinesOf(dump.content)) {
        (void)std::puts(Printable(line).c_str());
    }
    if (dump.content.empty()) {
        Complain(Printable(dump.name), "empty: the kernel log had no line about the daemon");
    }
    return ExitStatus::Success;
}

ExitStatus ShowOne(const std::vector<KernelLogDump>& dumps, const Options& options) {
    std::string names;
    for (const KernelLogDump& dump : dumps) {
        if (dump.name != options.name) {
            names += "\n  " + Printable(dump.name);
            continue;
        }
        if (dump.errorNumber != 0) {
            return Fail(Printable(PathOf(dump)), dump.errorNumber, Unreadable(PathOf(dump), dump.errorNumber),
                        options.isJson);
        }
        return options.isJson ? ShowJson(dump) : ShowText(dump);
    }
    return Fail(Printable(options.name), ENOENT,
                "no such dump; " + (names.empty() ? "there is none" : "these are there:" + names), options.isJson);
}

ExitStatus ShowDumps(const Options& options) {
    int err = 0;
    const std::vector<KernelLogDump> dumps = KernelLogDumps(err);
    if (err != 0) {
        return Fail(DUMP_DIRECTORY, err, Unreadable(DUMP_DIRECTORY, err), options.isJson);
    }
    return options.name.empty() ? List(dumps, options.isJson) : ShowOne(dumps, options);
}

}  // namespace

void AddDumpsCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<Options>();
    CLI::App* parser = app.add_subcommand("dumps", "List the kernel-log dumps with the record of each, or show one.");
    const auto check = [](const std::string& name) {
        return name.empty() || name.find('/') != std::string::npos ? name + ": a name from the list, not a path"
                                                                   : std::string();
    };
    parser->add_option("NAME", options->name, "the dump to show")->check(CLI::Validator(check, ""))->type_name("");
    parser->add_flag("--json", options->isJson, "one object a line");
    parser->footer(FOOTER);
    parser->callback([options, &chosen] { chosen = [options] { return ShowDumps(*options); }; });
}

}  // namespace TAVO::FileMigrateOrvane
