// A client of the C interface, freed at the end of its scope.
#pragma once

#include <cstdint>
#include <string>

#include "file_migrate_client.h"

namespace TAVO::FileMigrateOrvane::Testing {

struct CClient {
    explicit CClient(const std::string& socketPath, std::int64_t connectLimit = 5000, std::int64_t replyLimit = 5000)
        : options{socketPath.c_str(), connectLimit, replyLimit, 0} {}
    ~CClient() { file_migrate_client_free(c); }

    const file_migrate_options options;
    file_migrate_client* const c = file_migrate_client_new(&options);
};

}  // namespace TAVO::FileMigrateOrvane::Testing
