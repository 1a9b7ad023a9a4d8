// The signature of the command handlers and the reply context that they fill.
#pragma once

#include <cstdint>

#include "file_migrate_orvane.h"
#include "string_list.h"

namespace TAVO::FileMigrateOrvane {

/// The reply context of one request. It belongs to the worker that handles the request.
struct extraInfo {
    std::int32_t errCode = 0;  ///< error number that is sent with the result
    StringList strs;           ///< result strings, sent in string packages
};

/// The result of a migration whose source does not exist.
inline constexpr std::int32_t SOURCE_ABSENT = -2;

/// Handles a request whose fields have been validated and returns the reply's result. Several workers run handlers at
/// the same time.
using CommandHandler = std::int32_t(const FileMigrateRcvMsg* msg, extraInfo& info);

}  // namespace TAVO::FileMigrateOrvane
