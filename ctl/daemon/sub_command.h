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
    bool isItemized = false;  ///< list each object of the dry run
    bool showsProgress = false;
    bool isStrict = false;  ///< refuse what would lose links or special files
    bool isForced = false;  ///< send what would lose the source
    AnswerStyle style;
};

/// What a sub-command accepts, and its properties. Positional arguments come in this order.
enum Takes : unsigned {
    TakesOwner = 1U << 0,
    TakesMode = 1U << 1,
    TakesPath = 1U << 2,
    TakesSource = 1U << 3,  ///< a path followed by a destination
    TakesDestination = 1U << 4,
    TakesRecursive = 1U << 5,
    TakesKeepGoing = 1U << 6,
    TakesFromParent = 1U << 7,
    TakesHuman = 1U << 8,
    TakesDryRun = 1U << 9,
    TakesProgress = 1U << 10,
    TakesForce = 1U << 11,     ///< copies the source and removes it even if the copy failed
    MeansChildren = 1U << 12,  ///< works on the children of the source
    Moves = 1U << 13,          ///< renames if possible
    RemovesSource = 1U << 14,
    MakesDirectory = 1U << 15,
    OutlivesUs = 1U << 16,  ///< may take long; the daemon finishes it even if orvanectl has ended
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
