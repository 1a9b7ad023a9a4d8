#include "request_text.h"

#include <cstdlib>

namespace TAVO::FileMigrateOrvane {

std::uint32_t ModeOf(const char* perm) {
    return static_cast<std::uint32_t>(std::strtoul(perm, nullptr, 8));
}

bool LacksOwnerOrMode(const FileMigrateRcvMsg* msg) {
    return msg->user[0] == '\0' || msg->group[0] == '\0' || msg->perm[0] == '\0';
}

}  // namespace TAVO::FileMigrateOrvane
