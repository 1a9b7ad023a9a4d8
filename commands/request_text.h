// Reading the text fields of a request.
#pragma once

#include <cstdint>

#include "command.h"

namespace TAVO::FileMigrateOrvane {

[[nodiscard]] inline bool IsCommand(const FileMigrateRcvMsg* msg, Command command) {
    return msg->cmd == static_cast<std::int32_t>(command);
}

/// The low 32 bits of `perm` as an octal number, read up to the first character that is no octal digit; 0, which the
/// commands refuse, where there is none. A text that reads as 0 is no error to the conversion: a command that
/// refuses it reports errno as the last failing call left it.
[[nodiscard]] std::uint32_t ModeOf(const FileMigrateRcvMsg* msg);

/// Whether one of the texts for owner and mode is missing.
[[nodiscard]] bool LacksOwnerOrMode(const FileMigrateRcvMsg* msg);

struct Owner {
    std::uint32_t uid;
    std::uint32_t gid;

    /// Whether both were decoded; 0xFFFFFFFF is what the decoders give otherwise.
    [[nodiscard]] bool IsWhole() const { return uid != UINT32_MAX && gid != UINT32_MAX; }
};

/// Decodes `user` and `group`, the second also where the first fails; failures are logged and recorded.
[[nodiscard]] Owner DecodeOwner(const FileMigrateRcvMsg* msg, extraInfo& info);

}  // namespace TAVO::FileMigrateOrvane
