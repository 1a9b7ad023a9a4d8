#include <strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "argument_checks.h"
#include "record_filter.h"
#include "record_input.h"
#include "record_summary.h"
#include "records_commands.h"
#include "show_records.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr const char* FOOTER =
    "Without FILE, all record files and their rotated files are read, ordered by\n"
    "time, the newest record last. With --follow, the rotated files of FILE are read\n"
    "too.\n"
    "Times are local: 2026-11-21, 2026-11-21 10:15, 10:15:30 (today), 20261121101530,\n"
    "today, yesterday, -1h, \"10 min ago\" (also s, d and w).\n"
    "The day or minute of --until is included.\n"
    "Bytes that do not belong to a record are skipped and reported on standard error.\n"
    "\n"
    "Examples:\n"
    "  orvanectl records -v --path /data/app      what failed there, and why\n"
    "  orvanectl records --summary --since -1h    how often each failure occurred\n"
    "  orvanectl records --by cause --json >first.json\n"
    "  orvanectl records --against first.json     which causes are new, which are gone";

std::string CheckType(const std::string& type) {
    const bool isKnown = std::ranges::any_of(RECORD_TYPES, [&](std::string_view known) {
        return strncasecmp(known.data(), type.c_str(), known.size() + 1) == 0;
    });
    return isKnown ? std::string() : Printable(type) + ": there is no such record type; see file_migrate_records(5)";
}

void AddFilters(CLI::App& parser, RecordsOptions& options) {
    RecordFilter& filter = options.filter;
    const auto time = [](Edge edge) {
        return CLI::Validator(
            [edge](std::string& text) {
                std::optional<std::string> times = ParseTime(text, edge);
                if (!times) {
                    return text + ": expected YYYY-MM-DD, YYYY-MM-DD HH:MM[:SS] or HH:MM[:SS]";
                }
                text = std::move(*times);
                return std::string();
            },
            "");
    };
    parser.add_option("--since", filter.since, "only records from this time or later")
        ->type_name("TIME")
        ->transform(time(Edge::Begin));
    parser.add_option("--until", filter.until, "only records from this time or earlier")
        ->type_name("TIME")
        ->transform(time(Edge::End));
    parser.add_option("--type", filter.type, "only records of this type, such as MOVE")
        ->type_name("TYPE")
        ->check(CLI::Validator(CheckType, ""));
    parser
        .add_option_function<std::string>(
            "--errno",
            [&filter](const std::string& text) {
                filter.errorNumber = ParseErrorNumber(text);
                if (!filter.errorNumber) {
                    throw CLI::ValidationError("--errno",
                                               text + ": expected an error name such as EACCES, or a number");
                }
            },
            "only records with this error (name or number)")
        ->type_name("NAME");
    parser.add_option("--path", filter.path, "only records of this path and paths below it")
        ->type_name("PREFIX")
        ->transform(CLI::Validator(MakeAbsolute, ""));
}

/// Refuses combinations of options that make no sense.
void Check(const RecordsOptions& options, bool isFollowing) {
    if (isFollowing && options.isSummary) {
        throw CLI::ValidationError("--follow", "cannot be combined with --summary, --by or --against");
    }
    if (isFollowing && std::ranges::find(options.files, Reader::STANDARD_INPUT) != options.files.end()) {
        throw CLI::ValidationError("--follow", "standard input cannot be followed");
    }
    if (isFollowing && (!options.directories.empty() || options.lastCount > 0 || options.isReversed)) {
        throw CLI::ValidationError("--follow", "cannot be combined with --directory, --lines or --reverse");
    }
    const RecordFilter& filter = options.filter;
    if (!filter.until.empty() && filter.until < filter.since) {
        throw CLI::ValidationError("--until", "is before --since");
    }
}

}  // namespace

void AddRecordsCommand(CLI::App& app, Action& chosen) {
    const auto options = std::make_shared<RecordsOptions>();
    const auto isFollowing = std::make_shared<bool>(false);
    CLI::App* parser = app.add_subcommand("records", "Show the records of failures.");
    parser->add_option("FILE", options->files, "record files, or - for standard input")->type_name("");
    AddFilters(*parser, *options);
    parser->add_flag("-v,--verbose", options->isVerbose, "show the cause and the snapshots of each record");
    parser->add_flag("--json", options->isJson, "print one JSON object per line");
    parser->add_flag("--summary", options->isSummary, "count records by failure and by directory");
    parser
        ->add_option_function<std::string>(
            "--by",
            [options](const std::string& property) {
                options->by = property;
                options->isSummary = true;
            },
            "count by host, cause, type, errno or day")
        ->check(CLI::IsMember(std::vector<std::string>(std::begin(RecordSummary::PROPERTIES),
                                                       std::end(RecordSummary::PROPERTIES)))
                    .description(""))
        ->type_name("WHAT");
    parser
        ->add_option_function<std::string>(
            "--against",
            [options](const std::string& earlier) {
                options->against = earlier;
                options->isSummary = true;
            },
            "compare with a printed --by summary or a directory")
        ->check(CLI::ExistingPath.description(""))
        ->type_name("EARLIER");
    parser->add_option("--directory", options->directories, "read the record files copied to this directory")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CLI::ExistingDirectory.description(""))
        ->type_name("DIR");
    parser->add_option("--host-from", options->hostFrom, "file in each DIR with the machine's name")->type_name("FILE");
    parser->add_option("-n,--lines", options->lastCount, "show only the last N records")
        ->check(CLI::Range(1, 1'000'000'000).description(""))
        ->type_name("N");
    parser->add_flag("-r,--reverse", options->isReversed, "show the newest record first");
    parser->add_flag("-f,--follow", *isFollowing, "print the last ten records, then each new one");
    parser->footer(FOOTER);
    parser->callback([options, isFollowing, &chosen] {
        Check(*options, *isFollowing);
        if (!options->against.empty() && options->by.empty()) {
            options->by = "cause";
        }
        chosen = [options, isFollowing] { return *isFollowing ? FollowRecords(*options) : ShowRecords(*options); };
    });
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
