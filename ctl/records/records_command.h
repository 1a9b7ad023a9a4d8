// orvanectl records: shows what the daemon recorded, as a table, in detail, counted or as JSON. For main's thread.
#pragma once

#include <CLI/CLI.hpp>

#include "action.h"

namespace TAVO::FileMigrateOrvane {

void AddRecordsCommand(CLI::App& app, Action& chosen);

}  // namespace TAVO::FileMigrateOrvane
