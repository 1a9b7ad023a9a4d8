// orvanectl status: whether the daemon can be reached and how fast it answers, and what it has recorded. For main's
// thread.
#pragma once

#include <CLI/CLI.hpp>

#include "action.h"
#include "daemon_options.h"

namespace TAVO::FileMigrateOrvane {

/// @param daemon  read when the chosen action runs; must live until then
/// @param chosen  set by the parser
void AddStatusCommand(CLI::App& app, const DaemonOptions& daemon, Action& chosen);

}  // namespace TAVO::FileMigrateOrvane
