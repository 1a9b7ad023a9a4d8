#include "records_command.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "argument_checks.h"
#include "record_filter.h"
#include "record_time.h"
#include "record_input.h"
#include "show_records.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr const char* FOOTER =
    "Without FILE, all record files are read with the ones they were rotated into, in the order of\n"
    "the records' times, the newest last. With --follow a FILE stands for these, too.\n"
    "Times are local ones: 2026-11-21, 2026-11-21 10:15, 10:15:30 (today), 20261121101530. The day\n"
    "or minute of --until is included.\n"
    "Bytes that are no record are skipped and told on standard error.\n"
    "\n"
    "Examples:\n"
    "  orvanectl records -v --path /data/app      what happened to it, and why\n"
    "  orvanectl records --summary --since 10:00  how much of what went wrong today";

void AddFilters(CLI::App& parser, RecordsOptions& options) {
    RecordFilter& filter = options.filter;
    const auto time = [](Edge edge) {
        return CLI::Validator(
            [edge](std::string& text) {
                std::optional<std::string> times = ParseTime(text, edge);
                if (!times) {
                    return text + ": a time is YYYY-MM-DD, YYYY-MM-DD HH:MM[:SS] or HH:MM[:SS]";
                }
                text = std::move(*times);
                return std::string();
            },
            "");
    };
    parser.add_option("--since", filter.since, "only records of this time and later")
        ->type_name("TIME")
        ->transform(time(Edge::Begin));
    parser.add_option("--until", filter.until, "only records of this time and earlier")
        ->type_name("TIME")
        ->transform(time(Edge::End));
    parser.add_option("--type", filter.type, "only records of this type, such as MOVE")->type_name("TYPE");
    parser
        .add_option_function<std::string>(
            "--errno",
            [&filter](const std::string& text) {
                filter.errorNumber = ParseErrorNumber(text);
                if (!filter.errorNumber) {
                    throw CLI::ValidationError("--errno", text + ": an error is a name such as EACCES, or a number");
                }
            },
            "only records with this error, by name or number")
        ->type_name("NAME");
    parser.add_option("--path", filter.path, "only records of this path, or a path below it")
        ->type_name("PREFIX")
        ->transform(CLI::Validator(MakeAbsolute, ""));
}

/// Options that are right one by one and wrong together.
void Check(const RecordsOptions& options, bool isFollowing) {
    if (isFollowing && options.isSummary) {
        throw CLI::ValidationError("--follow", "there is no --summary of what is still to come");
    }
    if (isFollowing && std::ranges::find(options.files, STANDARD_INPUT) != options.files.end()) {
        throw CLI::ValidationError("--follow", "standard input cannot be followed");
    }
    const RecordFilter& filter = options.filter;
    if (!filter.until.empty() && filter.until < filter.since) {
        throw CLI::ValidationError("--until", "it lies before --since");
    }
}

}  // namespace

void AddRecordsCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<RecordsOptions>();
    const auto isFollowing = std::make_shared<bool>(false);
    CLI::App* parser = app.add_subcommand("records", "Show the records of failed operations and refused requests.");
    parser->add_option("FILE", options->files, "record files, or - for standard input")->type_name("");
    AddFilters(*parser, *options);
    parser->add_flag("-v,--verbose", options->isVerbose, "the snapshots below each record, and the likely cause");
    parser->add_flag("--json", options->isJson, "one object a line");
    parser->add_flag("--summary", options->isSummary,
                     "how many records of each failure and directory, first and last time");
    parser->add_flag("-f,--follow", *isFollowing,
                     "the last ten records, then each new one as it is written, until interrupted;\n"
                     "not with --summary");
    parser->footer(FOOTER);
    parser->callback([options, isFollowing, &chosen] {
        Check(*options, *isFollowing);
        chosen = [options, isFollowing] { return *isFollowing ? FollowRecords(*options) : ShowRecords(*options); };
    });
}

}  // namespace TAVO::FileMigrateOrvane
