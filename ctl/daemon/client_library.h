// The client library, with its names visible in the tool's namespace.
#pragma once

#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateOrvane::Ctl {

using namespace FileMigrateClient;

}  // namespace TAVO::FileMigrateOrvane::Ctl
