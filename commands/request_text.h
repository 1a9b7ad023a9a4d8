// Conversions of a request's text fields. No state; any thread.
#pragma once

#include <cstdint>

#include "command.h"

namespace TAVO::FileMigrateOrvane {

[[nodiscard]] inline bool IsCommand(const FileMigrateRcvMsg* msg, Command command) {
    return msg->cmd == static_cast<std::int32_t>(command);
}

/// The low 32 bits of `perm`, read as an octal number up to the first character that is not an octal digit; 0 if it
/// does not begin with a digit. The commands refuse 0 and then report errno as an earlier call left it, because the
/// conversion itself does not fail.
[[nodiscard]] std::uint32_t ModeOf(const FileMigrateRcvMsg* msg);

/// Whether the user, the group or the mode is empty.
[[nodiscard]] bool LacksOwnerOrMode(const FileMigrateRcvMsg* msg);

struct Owner {
    std::uint32_t uid;
    std::uint32_t gid;

    /// Whether both were decoded. The decoders return 0xFFFFFFFF on failure.
    [[nodiscard]] bool IsWhole() const { return uid != UINT32_MAX && gid != UINT32_MAX; }
};

/// Decodes `user` and `group`. It decodes the group even if the user cannot be decoded. Failures are logged and
/// recorded.
[[nodiscard]] Owner DecodeOwner(const FileMigrateRcvMsg* msg, extraInfo& info);

}  // namespace TAVO::FileMigrateOrvane
