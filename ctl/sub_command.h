// The sub-commands of orvanectl: what each takes, what it asks of the daemon and how its answer is told. Constant
// data and functions without state; used by the one thread of the tool.
#pragma once

#include <span>
#include <string>

#include "file_migrate_client.h"

namespace TAVO::FileMigrateOrvane {

enum class ExitStatus : int {
    Success = 0,
    Failed = 1,  ///< the operation failed; for exists and is-dir also "no"
    Usage = 2,   ///< wrong arguments, or a request that the daemon would refuse
    SourceMissing = 3,
    NoAnswer = 4,  ///< no daemon, or no whole reply from it
};

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
};

/// What a sub-command takes; positional arguments come in this order.
enum Takes : unsigned {
    TAKES_OWNER = 1U << 0,
    TAKES_MODE = 1U << 1,
    TAKES_PATH = 1U << 2,
    TAKES_SOURCE = 1U << 3,  ///< a path that goes with a destination
    TAKES_DESTINATION = 1U << 4,
    TAKES_RECURSIVE = 1U << 5,
    TAKES_KEEP_GOING = 1U << 6,
    TAKES_FROM_PARENT = 1U << 7,
};

struct SubCommand {
    const char* name;
    const char* purpose;
    const char* example;
    unsigned takes;
    int replySeconds;  ///< how long to wait for an answer unless told otherwise; 0 for ever
    ExitStatus (*run)(Client& client, const Arguments& arguments, const std::string& what);
};

std::span<const SubCommand> SubCommands();

/// Sends the command and tells its answer: figures and names on standard output, failures on standard error.
ExitStatus Run(const SubCommand& command, Client& client, const Arguments& arguments);

}  // namespace TAVO::FileMigrateOrvane
