// Converts the requests of the C interface into those of the session, and the session's replies into plain structs.
// Internal to the library. Functions without state; any thread.
#pragma once

#include "file_migrate_client.h"
#include "listing.h"
#include "request.h"

namespace TAVO::FileMigrateClient {

[[nodiscard]] file_migrate_reply NoMemory();
[[nodiscard]] file_migrate_reply ToC(const Failure& failure);
[[nodiscard]] file_migrate_reply ToC(const Reply& reply);

/// @param options  nullptr for the defaults
[[nodiscard]] ClientOptions FromC(const file_migrate_options* options);

/// Why a request is refused before it is converted; FILE_MIGRATE_ANSWERED if there is nothing wrong.
[[nodiscard]] file_migrate_reply Check(const file_migrate_client* client, const file_migrate_request* request);

/// @param request  passed the check
[[nodiscard]] Request FromC(const file_migrate_request& request);

/// What the command does with its packages.
[[nodiscard]] PackageTaker TakerFor(file_migrate_command command, EntryTaker taker);

/// @param taker  can be nullptr: then the entries are dropped
[[nodiscard]] EntryTaker FromC(file_migrate_entry_taker* taker, void* context);

}  // namespace TAVO::FileMigrateClient
