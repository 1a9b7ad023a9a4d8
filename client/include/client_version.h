// The version of these headers, for C and C++. A program can check at compile time what it is built against, and with
// file_migrate_client_version() at run time which library it runs with.
#pragma once

#define FILE_MIGRATE_CLIENT_VERSION_MAJOR 0
#define FILE_MIGRATE_CLIENT_VERSION_MINOR 2
#define FILE_MIGRATE_CLIENT_VERSION_PATCH 0

// One number that grows with each version: 0.2.0 is 2000, 1.4.3 is 1004003.
#define FILE_MIGRATE_CLIENT_VERSION                                                           \
    (FILE_MIGRATE_CLIENT_VERSION_MAJOR * 1000000 + FILE_MIGRATE_CLIENT_VERSION_MINOR * 1000 + \
     FILE_MIGRATE_CLIENT_VERSION_PATCH)
