// The sub-commands that read what the daemon recorded. They need no daemon. Used by main.
#pragma once

#include "action.h"

namespace CLI {
class App;
}

namespace TAVO::FileMigrateOrvane::Ctl {

/// Adds orvanectl records, which shows records as a table, in detail, counted or as JSON.
void AddRecordsCommand(CLI::App& app, Action& chosen);

/// Adds orvanectl dumps, which lists the kernel-log dumps with their records, or shows one.
void AddDumpsCommand(CLI::App& app, Action& chosen);

}  // namespace TAVO::FileMigrateOrvane::Ctl
