#include "request_text.h"

#include <cstdlib>

#include "identity.h"
#include "record_format.h"

namespace TAVO::FileMigrateOrvane {

std::uint32_t ModeOf(const FileMigrateRcvMsg* msg) {
    return static_cast<std::uint32_t>(std::strtoul(msg->perm, nullptr, 8));
}

bool LacksOwnerOrMode(const FileMigrateRcvMsg* msg) {
    return msg->user[0] == '\0' || msg->group[0] == '\0' || msg->perm[0] == '\0';
}

Owner DecodeOwner(const FileMigrateRcvMsg* msg, extraInfo& info) {
    const int uid = DecodeUid(msg->user, info.errCode, RECORD_KIND_AB);
    const int gid = DecodeGid(msg->group, info.errCode, RECORD_KIND_AB);
    return {static_cast<std::uint32_t>(uid), static_cast<std::uint32_t>(gid)};
}

}  // namespace TAVO::FileMigrateOrvane
