// Feeds any bytes to HandleCmd as a request. Handlers must see only validated requests, and each request must be either
// handled and answered or refused. Each input line is one field of the request, in wire order; the eighth line is the
// number of bytes that arrive. Stubs replace the handlers and the recording, so no file is touched.
#include <sys/socket.h>

#include <sstream>

#include "commands.h"
#include "error_record.h"
#include "handle_cmd.h"

namespace TAVO::FileMigrateOrvane {
static int g_handled, g_refused;

static std::int32_t Handle(const FileMigrateRcvMsg* msg) {
    bool isSound = msg->cmd >= 0 && msg->cmd < 19 && msg->recurseOpt >= 0 && msg->recurseOpt < 3;
    for (const char* field : {msg->src, msg->dst, msg->user, msg->group, msg->perm}) {
        const std::size_t width = field < msg->user ? PATH_WIDTH : field < msg->perm ? OWNER_WIDTH : PERM_WIDTH;
        const std::string_view text(field);
        isSound = isSound && text.size() < width && text.find("../") == text.npos;
    }
    isSound&& std::string_view(msg->perm).find('-') == std::string_view::npos ? void() : __builtin_trap();
    return ++g_handled;
}

#define HANDLER(name)                                             \
    std::int32_t name(const FileMigrateRcvMsg* msg, extraInfo&) { \
        return Handle(msg);                                       \
    }
#define HANDLERS(a, b, c, d, e) HANDLER(a) HANDLER(b) HANDLER(c) HANDLER(d) HANDLER(e)
HANDLERS(ProcessIsExistCmd, ProcessIsDirCmd, ProcessListDirCmd, ProcessExistedPathCmd, ProcessUsedSpaceCmd)
HANDLERS(ProcessMaxSizeCmd, ProcessPrepareDirCmd, ProcessMkDirCmd, ProcessMigrateSubCmd, ProcessMigrateAllCmd)
HANDLERS(ProcessCopyCombCmd, ProcessRemoveCmd, ProcessRestoreconCmd, ProcessChOwnCmd, ProcessChModCmd)
void RecordHandleCmdErr(const std::string&, const std::string&, const std::string&, int) {
    ++g_refused;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static int ends[2], failed = socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    std::istringstream stream(std::string(data, data + size));
    std::string lines[8];
    for (int i = 0; i < 8 && std::getline(stream, lines[i]); ++i) {
    }
    FileMigrateRcvMsg msg{std::atoi(lines[0].c_str()), {}, {}, {}, {}, {}, std::atoi(lines[6].c_str())};
    char* const texts[] = {msg.src, msg.dst, msg.user, msg.group, msg.perm, msg.perm + PERM_WIDTH};
    for (int i = 0; i < 5; ++i) {
        lines[i + 1].copy(texts[i], static_cast<std::size_t>(texts[i + 1] - texts[i]));
    }
    g_handled = g_refused = 0;
    HandleCmd(ends[0], reinterpret_cast<const char*>(&msg), lines[7].empty() ? 8288 : std::atoi(lines[7].c_str()));
    const ssize_t answer = recv(ends[1], texts[0], PATH_WIDTH, MSG_DONTWAIT);
    failed + g_handled + g_refused == 1 && answer == (g_handled == 1 ? 12 : -1) ? void() : __builtin_trap();
    return 0;
}
}  // namespace TAVO::FileMigrateOrvane
