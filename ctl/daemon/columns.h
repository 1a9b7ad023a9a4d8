// Formats a directory listing: in columns on a terminal, otherwise one name per line. Functions without state.
#pragma once

#include <string>
#include <vector>

#include "client_library.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// Appends "/" to the names of directories. For a terminal the names are escaped, sorted and arranged in as many
/// columns as fit. Otherwise they are unchanged, in the order of the listing.
std::string ListingText(const std::vector<Entry>& entries);

}  // namespace TAVO::FileMigrateOrvane::Ctl
