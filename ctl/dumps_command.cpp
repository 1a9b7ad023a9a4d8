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
#include "record_json.h"
#include "record_table.h"
#include "record_time.h"
#include "records/explain.h"
#include "records/kernel_log_dumps.h"
#include "records/record_files.h"
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

std::vector<Record> DumpedRecords() {
    RecordStream stream(AllRecordPaths());
    stream.End();
    std::vector<Record> records;
    while (std::optional<LocatedRecord> next = stream.Next()) {
        if (IsDumped(next->record)) {
            records.push_back(std::move(next->record));
        }
    }
    return records;
}

/// The last one that the dump may belong to; null when there is none.
const Record* OwnerOf(const KernelLogDump& dump, const std::vector<Record>& records) {
    const auto owner = std::find_if(records.rbegin(), records.rend(),
                                    [&dump](const Record& record) { return MayBelong(dump, record); });
    return owner == records.rend() ? nullptr : &*owner;
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

std::string InWords(const KernelLogDump& dump, const Record* owner) {
    const std::size_t lines = LinesOf(dump.content).size();
    std::string text = Printable(dump.name) + "  " + std::to_string(dump.content.size()) + " B  " +
                       std::to_string(lines) + (lines == 1 ? " line  " : " lines  ");
    if (owner == nullptr) {
        return text + "no record of it\n";
    }
    return text + TimeText(owner->times, ' ') + "  " + ErrorColumn(*owner) + "  " +
           Printable(FailureInWords(owner->type)) + "  " + ObjectsColumn(*owner) + "\n";
}

bool IsReadable(const KernelLogDump& dump) {
    if (dump.errorNumber != 0) {
        const std::string path = std::string(DUMP_DIRECTORY) + "/" + dump.name;
        Complain(Printable(path), ErrorText(dump.errorNumber) + ": " + AccessHint(path));
    }
    return dump.errorNumber == 0;
}

ExitStatus List(const std::vector<KernelLogDump>& dumps, bool isJson) {
    if (dumps.empty()) {
        Complain("dumps", std::string("there is none in ") + DUMP_DIRECTORY);
    }
    const std::vector<Record> records = DumpedRecords();
    ExitStatus status = ExitStatus::Success;
    for (const KernelLogDump& dump : dumps) {
        const Record* owner = OwnerOf(dump, records);
        if (isJson) {
            PrintJsonLine(ToJson(dump, owner));
        } else {
            (void)std::fputs(InWords(dump, owner).c_str(), stdout);
        }
        status = IsReadable(dump) ? status : ExitStatus::Failed;
    }
    return status;
}

void ShowJson(const KernelLogDump& dump) {
    const std::vector<Record> records = DumpedRecords();
    Json object = ToJson(dump, OwnerOf(dump, records));
    object["content"] = Json::array();
    for (const std::string_view line : LinesOf(dump.content)) {
        Json entry;
        PutText(entry, "line", line);
        object["content"].push_back(std::move(entry));
    }
    PrintJsonLine(object);
}

ExitStatus ShowOne(const std::vector<KernelLogDump>& dumps, const Options& options) {
    std::string names;
    for (const KernelLogDump& dump : dumps) {
        if (dump.name != options.name) {
            names += "\n  " + Printable(dump.name);
            continue;
        }
        if (!IsReadable(dump)) {
            return ExitStatus::Failed;
        }
        if (options.isJson) {
            ShowJson(dump);
            return ExitStatus::Success;
        }
        for (const std::string_view line : LinesOf(dump.content)) {
            (void)std::puts(Printable(line).c_str());
        }
        return ExitStatus::Success;
    }
    Complain(Printable(options.name),
             "no such dump; " + (names.empty() ? "there is none" : "these are there:" + names));
    return ExitStatus::Failed;
}

ExitStatus ShowDumps(const Options& options) {
    int err = 0;
    const std::vector<KernelLogDump> dumps = KernelLogDumps(err);
    if (err != 0) {
        Complain(DUMP_DIRECTORY, ErrorText(err) + ": " + AccessHint(DUMP_DIRECTORY));
        return ExitStatus::Failed;
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
