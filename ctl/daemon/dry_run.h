// What a destructive sub-command would do, found out by questions only. Like progress, it leaves no records: it walks
// from listing to listing (see place.h) and ends at the first failure. Stateless.
#pragma once

#include "sub_command.h"

namespace TAVO::FileMigrateOrvane {

/// The objects that the command would touch (how many, how much), what would become of those at the destination, and
/// what would not arrive. The tree may change meanwhile and afterwards.
Answer DryRun(const SubCommand& command, Client& client, const Arguments& arguments);

}  // namespace TAVO::FileMigrateOrvane
