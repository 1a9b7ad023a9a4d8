// A request and its conversion into a wire record. Internal to the library. No state; any thread.
#pragma once

#include <string_view>

#include "client_error.h"
#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateClient {

using FileMigrateOrvane::Command;
using FileMigrateOrvane::FileMigrateRcvMsg;

struct Request {
    Command cmd;
    std::string_view src;
    std::string_view dst = {};
    std::string_view user = {};
    std::string_view group = {};
    std::string_view perm = {};
    std::int32_t recurseOpt = 0;
};

/// Makes the wire record of a request. It checks everything that the daemon checks, because the daemon gives a refused
/// request no answer. It also refuses numbers of owners that the daemon would misread.
/// @return no failure, or ClientErrc::InvalidRequest with the name of the field and the reason as detail
[[nodiscard]] Failure EncodeRequest(const Request& request, FileMigrateRcvMsg& record);

}  // namespace TAVO::FileMigrateClient
