// What every command handler shares: its signature and the reply context that it fills.
#pragma once

#include <cstdint>

#include "file_migrate_orvane.h"
#include "string_list.h"

namespace TAVO::FileMigrateOrvane {

/// The reply context of one request; belongs to the worker that carries the request out.
struct extraInfo {
    std::int32_t errCode = 0;  ///< error number sent back beside the result
    StringList strs;           ///< result strings, sent back in string packages
};

/// The result of a migration whose source does not exist.
inline constexpr std::int32_t SOURCE_ABSENT = -2;

/// Carries out a request whose fields have been validated; the return value is the reply's result. Handlers run
/// on several workers at once.
using CommandHandler = std::int32_t (*)(const FileMigrateRcvMsg* msg, extraInfo& info);

}  // namespace TAVO::FileMigrateOrvane
