#include <strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
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
    "  orvanectl records --by cause --json >old   keep the counts of this upgrade\n"
    "  orvanectl records --against old            which causes are new or gone";

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

void AddForms(CLI::App& parser, RecordsOptions& options) {
    static const std::map<std::string, Form> forms = {
        {"html", Form::Html}, {"json", Form::JsonLines}, {"short", Form::Short}, {"verbose", Form::Verbose}};
    const auto setForm = [&options](const std::string& name) { options.form = forms.at(name); };
    CLI::Option* verbose = parser.add_flag_callback(
        "-v,--verbose", [=] { setForm("verbose"); }, "show the cause and the snapshots of each record");
    CLI::Option* json = parser.add_flag_callback(
        "--json", [=] { setForm("json"); }, "print one JSON object per line");
    CLI::Option* html = parser.add_flag_callback(
        "--html", [=] { setForm("html"); }, "print one page of all failures");
    parser.add_option_function<std::string>("-o,--output", setForm, "html, json, short or verbose")
        ->check(CLI::IsMember(&forms).description(""))
        ->type_name("FORM")
        ->excludes(verbose)
        ->excludes(json)
        ->excludes(html);
    parser.add_option("--color", options.colour, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("WHEN");
    parser.add_flag_callback(
        "--no-pager", [&options] { options.usesPager = false; }, "do not show the text in a pager");
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
    if (options.form == Form::Html &&
        (isFollowing || options.isSummary || options.lastCount > 0 || options.isReversed)) {
        throw CLI::ValidationError("--html", "cannot be combined with a summary, --lines, --reverse or --follow");
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
    AddForms(*parser, *options);
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
        options->usesPager = options->usesPager && !*isFollowing;
        chosen = [options, isFollowing] { return *isFollowing ? FollowRecords(*options) : ShowRecords(*options); };
    });
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
