// The sub-commands that the daemon carries out, as the parser is to know them. Used by main, once.
#pragma once

#include "action.h"
#include "daemon_options.h"

namespace CLI {
class App;
}

namespace TAVO::FileMigrateOrvane {

/// @param daemon  read when the chosen action runs; must live until then
/// @param chosen  set by the parser
void AddDaemonCommands(CLI::App& app, const DaemonOptions& daemon, Action& chosen);

}  // namespace TAVO::FileMigrateOrvane
