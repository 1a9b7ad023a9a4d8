// The sub-commands that the daemon carries out: their arguments and their requests. Constant data and functions without
// state; used by one thread.
#pragma once

#include <span>
#include <string>

#include "answer.h"
#include "daemon_commands.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// The arguments on the command line. Paths are absolute, because the daemon has its own working directory.
struct Arguments {
    std::string path;
    std::string destination;
    std::string user;
    std::string group;
    std::string mode;
    Recursion recursion = Recursion::PathOnly;
    bool keepGoing = false;
    bool fromParent = false;
    bool isDryRun = false;
    bool showsProgress = false;
    bool isStrict = false;  ///< refuse what would lose links or special files
    bool isForced = false;  ///< send what would lose the source
    AnswerStyle style;
};

/// What a sub-command accepts, and its properties. Positional arguments come in this order.
enum Takes : unsigned {
    TAKES_OWNER = 1U << 0,
    TAKES_MODE = 1U << 1,
    TAKES_PATH = 1U << 2,
    TAKES_SOURCE = 1U << 3,  ///< a path followed by a destination
    TAKES_DESTINATION = 1U << 4,
    TAKES_RECURSIVE = 1U << 5,
    TAKES_KEEP_GOING = 1U << 6,
    TAKES_FROM_PARENT = 1U << 7,
    TAKES_HUMAN = 1U << 8,
    TAKES_DRY_RUN = 1U << 9,
    TAKES_PROGRESS = 1U << 10,
    TAKES_FORCE = 1U << 11,     ///< copies the source and removes it even if the copy failed
    MEANS_CHILDREN = 1U << 12,  ///< works on the children of the source
    MOVES = 1U << 13,           ///< renames if possible
    REMOVES_SOURCE = 1U << 14,
    MAKES_DIRECTORY = 1U << 15,
    OUTLIVES_US = 1U << 16,  ///< may take long; the daemon finishes it even if orvanectl has ended
};

struct SubCommand {
    const char* name;
    const char* done;  ///< "moved"; only for sub-commands with a dry run or progress
    const char* purpose;
    const char* recursiveHelp;  ///< what --recursive means; null if it is not accepted
    const char* example;
    unsigned takes;
    int replySeconds;  ///< how long to wait for an answer by default; 0 for no limit
    Answer (*ask)(Client& client, const Arguments& arguments);

    [[nodiscard]] bool Is(unsigned flag) const { return (takes & flag) != 0; }
};

std::span<const SubCommand> SubCommands();

/// "/a" or "/a -> /b", escaped.
std::string Objects(const SubCommand& command, const Arguments& arguments);

/// Sends the command and prints its answer.
ExitStatus Run(const SubCommand& command, const DaemonOptions& daemon, const Arguments& arguments);

}  // namespace TAVO::FileMigrateOrvane::Ctl
