// orvanectl: sends one command to the daemon and tells its answer by text and exit status.
#include <sys/un.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "sub_command.h"

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

/// Puts a relative path below the working directory, as text: links and a trailing slash stay what they are.
std::string MakeAbsolute(std::string& path) {
    if (path.empty()) {
        return "an empty path names nothing";
    }
    if (path.find("../") != std::string::npos) {
        return path + ": the daemon takes no path with \"../\" in it";
    }
    if (path.front() == '/') {
        return {};
    }
    std::error_code error;
    const std::string directory = std::filesystem::current_path(error).string();
    if (error) {
        return path + ": the working directory is not known: " + error.message();
    }
    path = directory + (directory.ends_with('/') ? "" : "/") + path;
    return {};
}

/// The daemon reads as far as octal digits go; "75o" is to be a mistake here, not mode 075. It takes 0 for a text
/// that is no mode.
std::string CheckMode(std::string& mode) {
    if (mode.empty() || mode.find_first_not_of("01234567") != std::string::npos) {
        return mode + ": a mode is octal digits, such as 0755";
    }
    return mode.find_first_not_of('0') == std::string::npos ? "a mode of 0 is not possible" : std::string();
}

std::string CheckSocketPath(const std::string& path) {
    constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    return path.empty() || path.size() > longest ? "a socket's path has 1 to " + std::to_string(longest) + " bytes"
                                                 : std::string();
}

std::string SplitOwner(const std::string& owner, Arguments& arguments) {
    const std::size_t colon = owner.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == owner.size()) {
        return owner + ": an owner is USER:GROUP, both given";
    }
    arguments.user = owner.substr(0, colon);
    arguments.group = owner.substr(colon + 1);
    return {};
}

struct Settings {
    ClientOptions client;
    std::string owner;  ///< only a place for the parser; the parts are in `arguments`
    int timeoutSeconds = -1;
    Arguments arguments;
    const SubCommand* chosen = nullptr;
};

void AddPath(CLI::App& parser, const char* name, std::string& path) {
    parser.add_option(name, path, "relative to the working directory unless it begins with /")
        ->required()
        ->type_name("")
        ->transform(CLI::Validator(MakeAbsolute, ""));
}

void AddPositionals(CLI::App& parser, unsigned takes, Settings& settings) {
    Arguments& arguments = settings.arguments;
    if ((takes & TAKES_OWNER) != 0) {
        const auto split = [&arguments](std::string& owner) { return SplitOwner(owner, arguments); };
        parser.add_option("OWNER", settings.owner, "USER:GROUP, names or numbers")
            ->required()
            ->type_name("")
            ->transform(CLI::Validator(split, ""));
    }
    if ((takes & TAKES_MODE) != 0) {
        parser.add_option("MODE", arguments.mode, "permission bits in octal, not 0")
            ->required()
            ->type_name("")
            ->transform(CLI::Validator(CheckMode, ""));
    }
    if ((takes & (TAKES_PATH | TAKES_SOURCE)) != 0) {
        AddPath(parser, (takes & TAKES_SOURCE) != 0 ? "SOURCE" : "PATH", arguments.path);
    }
    if ((takes & TAKES_DESTINATION) != 0) {
        AddPath(parser, "DESTINATION", arguments.destination);
    }
}

void AddFlags(CLI::App& parser, unsigned takes, Arguments& arguments) {
    CLI::Option* recursive = nullptr;
    if ((takes & TAKES_RECURSIVE) != 0) {
        recursive = parser.add_flag_callback(
            "-r,--recursive", [&arguments] { arguments.recursion = Recursion::Recursive; },
            "everything below PATH too; where directories are made, every missing ancestor");
    }
    if ((takes & TAKES_KEEP_GOING) != 0) {
        parser.add_flag("--keep-going", arguments.keepGoing, "go entry by entry and remove all that can be removed");
    }
    if ((takes & TAKES_FROM_PARENT) != 0) {
        parser
            .add_flag("--from-parent", arguments.fromParent,
                      "give the label that the policy has for the parent directory")
            ->excludes(recursive);
    }
}

void AddSubCommand(CLI::App& app, const SubCommand& command, Settings& settings) {
    CLI::App* parser = app.add_subcommand(command.name, command.purpose);
    AddFlags(*parser, command.takes, settings.arguments);
    AddPositionals(*parser, command.takes, settings);
    const std::string wait =
        command.replySeconds == 0 ? "as long as it takes" : std::to_string(command.replySeconds) + " seconds";
    parser->footer("Waits for the answer " + wait +
                   " unless --timeout is given (see orvanectl --help).\n\nExample:\n  orvanectl " + command.example);
    parser->callback([&settings, &command] { settings.chosen = &command; });
}

void AddOptions(CLI::App& app, Settings& settings) {
    app.add_option("--socket", settings.client.socketPath, "the daemon's socket")
        ->capture_default_str()
        ->check(CLI::Validator(CheckSocketPath, ""))
        ->type_name("PATH");
    app.add_option("--timeout", settings.timeoutSeconds, "longest wait for the answer, 0 for ever (default: see below)")
        ->check(CLI::Range(0, LONGEST_TIMEOUT).description(""))
        ->type_name("SECONDS");
    app.fallthrough();             // both may stand behind the sub-command, too
    app.require_subcommand(0, 1);  // none is complained of in Main: the parser would hide a wrong word behind it
    app.footer(FOOTER);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("orvanectl: ") + error.what() + "\nRun orvanectl --help for more information.\n";
    });
}

int Main(int argc, char** argv) {
    CLI::App app("Sends one command to the file migration daemon and tells its answer.", "orvanectl");
    Settings settings;
    AddOptions(app, settings);
    for (const SubCommand& command : SubCommands()) {
        AddSubCommand(app, command, settings);
    }
    try {
        app.parse(argc, argv);
        if (settings.chosen == nullptr) {
            throw CLI::RequiredError("A sub-command");
        }
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(ExitStatus::Usage);
    }
    const int seconds = settings.timeoutSeconds >= 0 ? settings.timeoutSeconds : settings.chosen->replySeconds;
    settings.client.replyLimit = std::chrono::seconds(seconds);
    Client client(settings.client);
    return static_cast<int>(Run(*settings.chosen, client, settings.arguments));
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane

int main(int argc, char** argv) {
    try {
        return TAVO::FileMigrateOrvane::Main(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "orvanectl: %s\n", error.what());
        return static_cast<int>(TAVO::FileMigrateOrvane::ExitStatus::Failed);
    }
}
