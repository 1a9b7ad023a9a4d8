// The sub-commands that talk to the daemon, as the parser knows them, and the options that they share. Used by main.
#pragma once

#include <chrono>
#include <string_view>

#include "action.h"
#include "client_library.h"

namespace CLI {
class App;
}

namespace TAVO::FileMigrateOrvane::Ctl {

struct DaemonOptions {
    ClientOptions client;
    int timeoutSeconds = -1;  ///< longest wait for an answer, 0 for no limit; negative: the sub-command's default

    /// @param defaultSeconds  how long to wait if the command line does not say
    [[nodiscard]] ClientOptions WaitingFor(int defaultSeconds) const {
        ClientOptions options = client;
        options.replyLimit = std::chrono::seconds(timeoutSeconds >= 0 ? timeoutSeconds : defaultSeconds);
        return options;
    }
};

/// Adds one sub-command for each of the daemon's commands.
/// @param only    adds just the one with this name, if not empty
/// @param daemon  read when the selected action runs; must live until then
/// @param chosen  set by the parser
void AddDaemonCommands(CLI::App& app, std::string_view only, const DaemonOptions& daemon, Action& chosen);

/// Adds orvanectl status: whether the daemon answers, how fast, and what it has recorded. Parameters as above.
void AddStatusCommand(CLI::App& app, const DaemonOptions& daemon, Action& chosen);

}  // namespace TAVO::FileMigrateOrvane::Ctl
