// Takes the names of a listing, and the path of ExistedPath, from the packages of a reply. Internal to the library.
// Functions without state; any thread.
#pragma once

#include <cstddef>

#include "reply_reader.h"

namespace TAVO::FileMigrateClient {

/// A taker for the packages of a listing. Each name that it passes on is followed by a NUL.
[[nodiscard]] PackageTaker TakeEntries(EntryTaker taker);

/// A taker for the one package of ExistedPath. The path is taken as one entry that is no directory.
[[nodiscard]] PackageTaker TakePath(EntryTaker taker);

}  // namespace TAVO::FileMigrateClient
