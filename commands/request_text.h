// Reading the text fields of a request.
#pragma once

#include <cstdint>

#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateOrvane {

/// The low 32 bits of an octal text, read up to the first character that is no octal digit; 0 where there is none.
[[nodiscard]] std::uint32_t ModeOf(const char* perm);

[[nodiscard]] inline bool IsCommand(const FileMigrateRcvMsg* msg, Command command) {
    return msg->cmd == static_cast<std::int32_t>(command);
}

/// Whether one of the texts for owner and mode is missing.
[[nodiscard]] bool LacksOwnerOrMode(const FileMigrateRcvMsg* msg);

}  // namespace TAVO::FileMigrateOrvane
