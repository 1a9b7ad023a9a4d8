// orvanectl: parses the command line, runs the selected sub-command and exits with its status.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "argument_checks.h"
#include "daemon_commands.h"
#include "json_text.h"
#include "records_commands.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr int LONGEST_TIMEOUT = 31'536'000;  // a year, in seconds

constexpr const char* FOOTER =
    "Without --timeout, orvanectl waits 60 seconds for questions about one object\n"
    "and for new directories. It waits without limit for work on a tree, because the\n"
    "daemon finishes what it has begun even if nobody waits. Connecting takes at most\n"
    "5 seconds.\n"
    "\n"
    "Exit status:\n"
    "  0  success; exists, is-dir: yes\n"
    "  1  it failed, or --strict refused it; exists, is-dir: no\n"
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
    app.add_option("--timeout", daemon.timeoutSeconds, "how long to wait for the answer; 0 for no limit")
        ->check(CLI::Range(0, LONGEST_TIMEOUT).description(""))
        ->type_name("SECONDS");
    app.set_version_flag("--version", "orvanectl " ORVANECTL_VERSION, "print the version and exit");
    app.get_formatter()->column_width(24);
    app.fallthrough();             // both may also follow the sub-command
    app.require_subcommand(0, 1);  // Main reports a missing one; the parser would hide a wrong word
    app.footer(FOOTER);
}

/// Adds the sub-command with the name `only`, or all if no sub-command has this name. Making all parsers takes longer
/// than a short command itself.
void AddCommands(CLI::App& app, std::string_view only, const DaemonOptions& daemon, Action& chosen) {
    AddDaemonCommands(app, only, daemon, chosen);
    if (only.empty() || only == "status") {
        AddStatusCommand(app, daemon, chosen);
    }
    if (only.empty() || only == "records") {
        AddRecordsCommand(app, chosen);
    }
    if (only.empty() || only == "dumps") {
        AddDumpsCommand(app, chosen);
    }
    if (app.get_subcommands([](const CLI::App*) { return true; }).empty()) {
        AddCommands(app, "", daemon, chosen);
    }
}

std::size_t Distance(const std::string& from, const std::string& to) {
    // cost[i][j]: changes from the first i letters of one word to the first j letters of the other
    std::vector<std::vector<std::size_t>> cost(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
    for (std::size_t i = 0; i <= from.size(); ++i) {
        for (std::size_t j = 0; j <= to.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t changed = from[i - 1] == to[j - 1] ? 0 : 1;
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + changed});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[from.size()][to.size()];
}

/// The candidate with the fewest single-letter changes (insert, delete, replace, swap) from `word`; empty if each needs
/// more than two, or as many as the word has letters.
std::string Nearest(const std::string& word, const std::vector<std::string>& candidates) {
    constexpr std::size_t mostChanges = 2;
    constexpr std::size_t longestWord = 32;  // no sub-command is nearly as long
    if (word.size() > longestWord) {
        return {};
    }
    std::string nearest;
    std::size_t fewest = std::min(mostChanges + 1, word.size());
    for (const std::string& candidate : candidates) {
        const std::size_t changes = Distance(word, candidate);
        if (changes < fewest) {
            fewest = changes;
            nearest = candidate;
        }
    }
    return nearest;
}

/// The first unknown word in the place of the sub-command; empty if there is none.
std::string WrongWord(const CLI::App& app) {
    const std::vector<std::string> words = app.remaining();
    return words.empty() || words.front().starts_with('-') || !app.get_subcommands().empty() ? "" : words.front();
}

std::string SimilarCommand(const CLI::App& app, const std::string& word) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return Nearest(word, names);
}

/// The sub-command that was recognized; empty if there is none.
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

/// Reports what is wrong with the command line.
/// @param isJson  whether it asks for JSON
ExitStatus Refuse(const CLI::App& app, std::string why, bool isJson) {
    const std::string name = CommandOf(app);
    const std::string word = WrongWord(app);
    const std::string meant = SimilarCommand(app, word);
    if (!word.empty()) {
        why = Printable(word) + ": there is no such sub-command";
    } else if (const auto words = app.remaining(); !words.empty() && words.front() == "--json") {
        why = "--json must follow the sub-command";
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

/// Whether the words ask for JSON. The parser cannot answer that if it refuses them.
bool AsksForJson(std::span<char* const> words) {
    constexpr std::string_view spellings[] = {"--json", "-ojson", "-o=json", "--output=json"};
    std::string_view former;
    for (const std::string_view word : words) {
        const bool isValue = former == "-o" || former == "--output";
        if ((isValue && word == "json") || std::ranges::find(spellings, word) != std::end(spellings)) {
            return true;
        }
        former = word;
    }
    return false;
}

ExitStatus Main(int argc, char** argv) {
    CLI::App app("Send a command to the file migration daemon, or read its records.", "orvanectl");
    DaemonOptions daemon;
    Action chosen;
    AddOptions(app, daemon);
    const std::span words(argv, static_cast<std::size_t>(argc));
    AddCommands(app, argc > 1 ? words[1] : "", daemon, chosen);
    const bool isJson = AsksForJson(words);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        if (!WrongWord(app).empty()) {
            return Refuse(app, "", isJson);
        }
        return app.exit(help) == 0 ? ExitStatus::Success : ExitStatus::Failed;
    } catch (const CLI::ParseError& error) {
        return Refuse(app, error.what(), isJson);
    }
    return chosen ? chosen() : Refuse(app, "A sub-command is required", isJson);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Ctl

int main(int argc, char** argv) {
    using namespace TAVO::FileMigrateOrvane::Ctl;
    // For printable characters only: the other categories take longer to load than the rest of a short command.
    (void)std::setlocale(LC_CTYPE, "");  // NOLINT(concurrency-mt-unsafe): before any thread
    try {
        return static_cast<int>(Main(argc, argv));
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "orvanectl: %s\n", error.what());
        return static_cast<int>(ExitStatus::Failed);
    }
}
