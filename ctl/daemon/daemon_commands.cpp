#include "daemon_commands.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <string_view>

#include "argument_checks.h"
#include "sub_command.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

/// The parsed words of one sub-command.
struct Words {
    std::string owner;     ///< as given; its parts are in `arguments`
    std::string progress;  ///< "always", "never" or empty
    Arguments arguments;
};

void AddPath(CLI::App& parser, const char* name, std::string& path, std::string (*check)(std::string&)) {
    parser.add_option(name, path, "path; relative to the working directory")
        ->required()
        ->type_name("")
        ->transform(CLI::Validator(check, ""));
}

void AddPositionals(CLI::App& parser, const SubCommand& command, Words& words) {
    Arguments& arguments = words.arguments;
    if (command.Is(TakesOwner)) {
        const auto split = [&](std::string& owner) { return SplitOwner(owner, arguments.user, arguments.group); };
        parser.add_option("OWNER", words.owner, "USER:GROUP, names or numbers")
            ->required()
            ->type_name("")
            ->transform(CLI::Validator(split, ""));
    }
    if (command.Is(TakesMode)) {
        parser.add_option("MODE", arguments.mode, "permission bits in octal, not 0")
            ->required()
            ->type_name("")
            ->transform(CLI::Validator(CheckMode, ""));
    }
    if (command.Is(TakesPath | TakesSource)) {
        AddPath(parser, command.Is(TakesSource) ? "SOURCE" : "PATH", arguments.path,
                command.Is(RemovesSource) ? MakeAbsoluteBelowRoot : MakeAbsolute);
    }
    if (command.Is(TakesDestination)) {
        AddPath(parser, "DESTINATION", arguments.destination, MakeAbsolute);
    }
}

void AddChoices(CLI::App& parser, const SubCommand& command, Arguments& arguments) {
    CLI::Option* recursive = nullptr;
    if (command.Is(TakesRecursive)) {
        recursive = parser.add_flag_callback(
            "-r,--recursive", [&arguments] { arguments.recursion = Recursion::Recursive; }, command.recursiveHelp);
    }
    if (command.Is(TakesKeepGoing)) {
        parser.add_flag("--keep-going", arguments.keepGoing, "continue after entries that cannot be removed");
    }
    if (command.Is(TakesFromParent)) {
        parser.add_flag("--from-parent", arguments.fromParent, "use the parent directory's label")->excludes(recursive);
    }
}

void AddStyle(CLI::App& parser, const SubCommand& command, Words& words) {
    Arguments& arguments = words.arguments;
    if (command.Is(TakesDryRun)) {
        if (command.Is(RemovesSource) && command.Is(TakesDestination)) {
            parser.add_flag("--strict", arguments.isStrict, "refuse if links or special files would be lost");
        }
        if (command.Is(TakesForce)) {
            parser.add_flag("--force", arguments.isForced, "send it even if the source would be lost");
        }
        CLI::Option* dryRun =
            parser.add_flag("--dry-run", arguments.isDryRun, "change nothing; show what would be done");
        parser.add_flag("-i,--itemize", arguments.isItemized, "list each object of the dry run")->needs(dryRun);
    }
    if (command.Is(TakesProgress)) {
        parser.add_option("--progress", words.progress, "show progress: always or never")
            ->check(CLI::IsMember({"always", "never"}).description(""))
            ->type_name("WHEN");
    }
    if (command.Is(TakesHuman)) {
        // In all other sub-commands "-h" prints the help.
        parser.set_help_flag("--help", "Print this help message and exit");
        parser.add_flag("-h,--human-readable", arguments.style.isHuman, "print 35M instead of 35840");
    }
    parser.add_flag("--json", arguments.style.isJson, "print one JSON object instead of text");
}

bool ShowsProgress(const SubCommand& command, const std::string& when) {
    return command.Is(TakesProgress) && (when.empty() ? isatty(STDERR_FILENO) == 1 : when == "always");
}

void AddDaemonCommand(CLI::App& app, const SubCommand& command, const DaemonOptions& daemon, Action& chosen) {
    CLI::App* parser = app.add_subcommand(command.name, command.purpose);
    const auto words = std::make_shared<Words>();
    AddChoices(*parser, command, words->arguments);
    AddStyle(*parser, command, *words);
    AddPositionals(*parser, command, *words);
    const std::string wait =
        command.replySeconds == 0 ? "without limit" : std::to_string(command.replySeconds) + " seconds";
    parser->footer("Waits " + wait + " for the answer unless --timeout is given.\n\nExample:\n  orvanectl " +
                   command.example);
    parser->callback([&command, &daemon, &chosen, words] {
        words->arguments.showsProgress = ShowsProgress(command, words->progress);
        chosen = [&command, &daemon, words] { return Run(command, daemon, words->arguments); };
    });
}

}  // namespace

void AddDaemonCommands(CLI::App& app, std::string_view only, const DaemonOptions& daemon, Action& chosen) {
    for (const SubCommand& command : SubCommands()) {
        if (only.empty() || only == command.name) {
            AddDaemonCommand(app, command, daemon, chosen);
        }
    }
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
