// How a directory's listing is written: in columns on a terminal, one name a line for everything else. Stateless.
#pragma once

#include <string>
#include <vector>

#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateOrvane {

/// A directory's name ends in "/". For a terminal the names are sorted and shown in as many columns as its width
/// holds; otherwise they are bytes in the order of the listing.
std::string ListingText(const std::vector<Entry>& entries);

}  // namespace TAVO::FileMigrateOrvane
