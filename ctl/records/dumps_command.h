// orvanectl dumps: lists the kernel-log dumps with the record each belongs to, and shows one. For main's thread.
#pragma once

#include <CLI/CLI.hpp>

#include "action.h"

namespace TAVO::FileMigrateOrvane {

void AddDumpsCommand(CLI::App& app, Action& chosen);

}  // namespace TAVO::FileMigrateOrvane
