#include "commands.h"
#include "record_format.h"
#include "remove.h"
#include "request_text.h"

namespace TAVO::FileMigrateOrvane {

std::int32_t ProcessRemoveCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    const auto remove = IsCommand(msg, Command::Remove) ? Remove : TryRemove;
    return remove(msg->src, info.errCode, RECORD_KIND_AB);
}

}  // namespace TAVO::FileMigrateOrvane
