// What a destructive sub-command would do. The dry run only asks the daemon questions that leave no record: it goes
// from listing to listing (see client_place.h) and stops at the first failure. Functions without state.
#pragma once

#include "preflight.h"
#include "sub_command.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// Number and size of the objects that the command would touch, what would happen at the destination, and what would
/// not arrive. The tree may change at any time.
Answer DryRun(const SubCommand& command, Client& client, const Arguments& arguments, const Preflight& preflight);

}  // namespace TAVO::FileMigrateOrvane::Ctl
