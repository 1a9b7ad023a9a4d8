// A request before it is bytes, and its way into a wire record. Stateless; any thread may call it. Part of the
// library's inside.
#pragma once

#include <string_view>

#include "client_error.h"
#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateOrvane {

struct Request {
    Command cmd;
    std::string_view src;
    std::string_view dst = {};
    std::string_view user = {};
    std::string_view group = {};
    std::string_view perm = {};
    std::int32_t recurseOpt = 0;
};

/// Makes the wire record of a request, or tells why the daemon would refuse it. The daemon gives a refused request
/// no answer at all, so everything that it checks is checked here first.
/// @return ClientErrc::InvalidRequest with the field's name and the reason as detail, or no failure
[[nodiscard]] Failure EncodeRequest(const Request& request, FileMigrateRcvMsg& record);

}  // namespace TAVO::FileMigrateOrvane
