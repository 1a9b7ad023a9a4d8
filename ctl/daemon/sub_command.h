// The sub-commands of orvanectl that the daemon carries out: what each takes and what it asks of the daemon. Constant
// data and functions without state; used by the one thread of the tool.
#pragma once

#include <span>
#include <string>

#include "answer.h"
#include "daemon_options.h"

namespace TAVO::FileMigrateOrvane {

/// What a person gave on the command line. Paths are absolute: the daemon's working directory is not the person's.
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
    AnswerStyle style;
};

/// What a sub-command takes and is like; positional arguments come in this order.
enum Takes : unsigned {
    TAKES_OWNER = 1U << 0,
    TAKES_MODE = 1U << 1,
    TAKES_PATH = 1U << 2,
    TAKES_SOURCE = 1U << 3,  ///< a path that goes with a destination
    TAKES_DESTINATION = 1U << 4,
    TAKES_RECURSIVE = 1U << 5,
    TAKES_KEEP_GOING = 1U << 6,
    TAKES_FROM_PARENT = 1U << 7,
    TAKES_HUMAN = 1U << 8,
    TAKES_DRY_RUN = 1U << 9,
    TAKES_PROGRESS = 1U << 10,
    MEANS_CHILDREN = 1U << 11,  ///< of the source, not the source
    MOVES = 1U << 12,           ///< by renaming, where that is possible
    OUTLIVES_US = 1U << 13,     ///< it can take long, and the daemon goes on with it when orvanectl is gone
};

struct SubCommand {
    const char* name;
    const char* done;  ///< what it has done in the end: "moved"; only of those with a dry run or progress
    const char* purpose;
    const char* example;
    unsigned takes;
    int replySeconds;  ///< how long to wait for an answer unless told otherwise; 0 for ever
    Answer (*ask)(Client& client, const Arguments& arguments);

    [[nodiscard]] bool Is(unsigned flag) const { return (takes & flag) != 0; }
};

std::span<const SubCommand> SubCommands();

/// "/a", or "/a -> /b", as it may be shown.
std::string Objects(const SubCommand& command, const Arguments& arguments);

/// Sends the command and tells its answer.
ExitStatus Run(const SubCommand& command, const DaemonOptions& daemon, const Arguments& arguments);

}  // namespace TAVO::FileMigrateOrvane
