// orvanectl: reads the command line, lets the chosen sub-command do its work and ends with its status.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "argument_checks.h"
#include "daemon_commands.h"
#include "dumps_command.h"
#include "json_text.h"
#include "nearest.h"
#include "records_command.h"
#include "status_command.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr int LONGEST_TIMEOUT = 31'536'000;  // a year, in seconds

constexpr const char* FOOTER =
    "Without --timeout, questions about one object and the making of directories wait 60\n"
    "seconds for their answer; what works through a tree is waited for as long as it takes,\n"
    "since the daemon ends what it has begun whether or not anybody waits. Connecting takes\n"
    "5 seconds at most.\n"
    "\n"
    "Exit status:\n"
    "  0  success; exists, is-dir: yes\n"
    "  1  the operation failed; exists, is-dir: no (or, with a message, not known)\n"
    "  2  wrong usage, or a request that the daemon would refuse\n"
    "  3  the source does not exist\n"
    "  4  no daemon, or no answer from it\n"
    "\n"
    "Example:\n"
    "  orvanectl move /data/app.old /data/app";

void AddOptions(CLI::App& app, DaemonOptions& daemon) {
    app.add_option("--socket", daemon.client.socketPath, "the daemon's socket")
        ->capture_default_str()
        ->check(CLI::Validator(CheckSocketPath, ""))
        ->type_name("PATH");
    app.add_option("--timeout", daemon.timeoutSeconds, "longest wait for the answer, 0 for ever (default: see below)")
        ->check(CLI::Range(0, LONGEST_TIMEOUT).description(""))
        ->type_name("SECONDS");
    app.fallthrough();             // both may stand behind the sub-command, too
    app.require_subcommand(0, 1);  // none is complained of in Main: the parser would hide a wrong word behind it
    app.footer(FOOTER);
}

/// The first word that nobody took, where a sub-command was to stand.
std::string WrongWord(const CLI::App& app) {
    const std::vector<std::string> words = app.remaining();
    return words.empty() || words.front().starts_with('-') || !app.get_subcommands().empty() ? "" : words.front();
}

std::string MeantCommand(const CLI::App& app, const std::string& word) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return Nearest(word, names);
}

/// The sub-command that was understood; empty: none.
std::string CommandOf(const CLI::App& app) {
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return parsed.empty() ? "" : parsed.front()->get_name();
}

std::string Usage(const CLI::App& app) {
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    const std::string name = app.get_name();
    const CLI::Formatter formatter;
    const std::string usage = parsed.empty()
                                  ? formatter.make_usage(&app, name)
                                  : formatter.make_usage(parsed.front(), name + " " + parsed.front()->get_name());
    return usage.substr(0, usage.find_last_not_of('\n') + 1);
}

/// Tells what is wrong with the command line.
/// @param isJson  whether it asks for JSON, as far as that can be seen in words that were not understood
ExitStatus Refuse(const CLI::App& app, std::string why, bool isJson) {
    const std::string name = CommandOf(app);
    const std::string word = WrongWord(app);
    const std::string meant = MeantCommand(app, word);
    if (!word.empty()) {
        why = Printable(word) + ": there is no such sub-command";
    } else if (const auto words = app.remaining(); !words.empty() && words.front() == "--json") {
        why = "--json stands behind the sub-command";
    }
    const std::string hint = meant.empty() ? "" : "did you mean \"" + meant + "\"?";
    (void)std::fprintf(stderr, "orvanectl: %s\n%s%s%s\nRun orvanectl %s%s--help for more information.\n", why.c_str(),
                       hint.c_str(), hint.empty() ? "" : "\n", Usage(app).c_str(), name.c_str(),
                       name.empty() ? "" : " ");
    if (isJson) {
        Json object;
        object["command"] = name.empty() ? Json() : Json(name);
        object["ok"] = false;
        object["result"] = nullptr;
        object["errno"] = EINVAL;
        object["error"] = ErrorName(EINVAL);
        PutText(object, "message", why);
        PutText(object, "hint", hint);
        PrintJsonLine(object);
    }
    return ExitStatus::Usage;
}

ExitStatus Main(int argc, char** argv) {
    CLI::App app("Sends one command to the file migration daemon and tells its answer, or reads its records.",
                 "orvanectl");
    DaemonOptions daemon;
    Action chosen;
    AddOptions(app, daemon);
    AddDaemonCommands(app, daemon, chosen);
    AddStatusCommand(app, daemon, chosen);
    AddRecordsCommand(app, chosen);
    AddDumpsCommand(app, chosen);
    const std::span words(argv, static_cast<std::size_t>(argc));
    const bool isJson = std::ranges::find(words, std::string_view("--json")) != words.end();
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help) == 0 ? ExitStatus::Success : ExitStatus::Failed;
    } catch (const CLI::ParseError& error) {
        return Refuse(app, error.what(), isJson);
    }
    return chosen ? chosen() : Refuse(app, "A sub-command is required", isJson);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane

int main(int argc, char** argv) {
    using namespace TAVO::FileMigrateOrvane;
    (void)std::setlocale(LC_ALL, "");  // NOLINT(concurrency-mt-unsafe): before any thread
    try {
        return static_cast<int>(Main(argc, argv));
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "orvanectl: %s\n", error.what());
        return static_cast<int>(ExitStatus::Failed);
    }
}
