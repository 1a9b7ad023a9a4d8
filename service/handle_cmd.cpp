#include "handle_cmd.h"

#include <malloc.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "command.h"
#include "commands.h"
#include "error_record.h"
#include "file_migrate_orvane.h"
#include "log.h"
#include "record_format.h"
#include "reply.h"

namespace TAVO::FileMigrateOrvane {
namespace {

struct TableEntry {
    Command command;
    CommandHandler& handler;  ///< a reference, so a row without a handler does not compile
    LogKind kind;             ///< of the line that the log gets for a request
};

/// Indexed by the command number, which is part of the wire protocol: entries never move.
constexpr std::array<TableEntry, COMMAND_COUNT> COMMAND_TABLE = {{
    {Command::IsExist, ProcessIsExistCmd, LogKind::Routine},
    {Command::IsDir, ProcessIsDirCmd, LogKind::Routine},
    {Command::ListDir, ProcessListDirCmd, LogKind::Routine},
    {Command::PrepareDir, ProcessPrepareDirCmd, LogKind::Request},
    {Command::MoveSub, ProcessMigrateSubCmd, LogKind::Request},
    {Command::MoveAll, ProcessMigrateAllCmd, LogKind::Request},
    {Command::CopySub, ProcessMigrateSubCmd, LogKind::Request},
    {Command::CopyAll, ProcessMigrateAllCmd, LogKind::Request},
    {Command::Remove, ProcessRemoveCmd, LogKind::Request},
    {Command::Restorecon, ProcessRestoreconCmd, LogKind::Request},
    {Command::RestoreconFromParent, ProcessRestoreconCmd, LogKind::Request},
    {Command::TryRemove, ProcessRemoveCmd, LogKind::Request},
    {Command::MkDir, ProcessMkDirCmd, LogKind::Request},
    {Command::ChOwn, ProcessChOwnCmd, LogKind::Request},
    {Command::ChMod, ProcessChModCmd, LogKind::Request},
    {Command::ExistedPath, ProcessExistedPathCmd, LogKind::Routine},
    {Command::UsedSpace, ProcessUsedSpaceCmd, LogKind::Routine},
    {Command::MaxSize, ProcessMaxSizeCmd, LogKind::Routine},
    {Command::CopyComb, ProcessCopyCombCmd, LogKind::Request},
}};

consteval bool IsCommandTableComplete() {
    for (std::size_t number = 0; number < COMMAND_TABLE.size(); ++number) {
        const TableEntry& entry = COMMAND_TABLE[number];
        if (static_cast<std::size_t>(entry.command) != number) {
            return false;
        }
    }
    return true;
}
static_assert(IsCommandTableComplete(), "every command needs its entry, at the index that is its number");

constexpr std::int32_t MAX_RECURSE_OPT = 2;

/// If the result strings have more bytes than this, their memory is returned to the system.
constexpr std::size_t LARGE_REPLY = std::size_t{1} << 20;

void Refuse(const std::string& type, const std::string& field, const std::string& value) {
    RecordHandleCmdErr(type, field, value, RECORD_KIND_AB);
}

/// Whether a text is NUL-terminated within its width and does not contain "../".
bool IsTextValid(const char* text, std::size_t width) {
    return strnlen(text, width) < width && std::strstr(text, "../") == nullptr;
}

bool AreTextsValid(const FileMigrateRcvMsg& msg) {
    const struct {
        const char* name;
        const char* text;
        std::size_t width;
    } fields[] = {
        {"src", msg.src, sizeof(msg.src)},
        {"dts", msg.dst, sizeof(msg.dst)},  // the field is dst, but readers of the records know this name
        {"user", msg.user, sizeof(msg.user)},
        {"group", msg.group, sizeof(msg.group)},
        {"perm", msg.perm, sizeof(msg.perm)},
    };
    for (const auto& field : fields) {
        if (!IsTextValid(field.text, field.width)) {
            LogFailure({RecordTypeName("INVALID_STR"), EINVAL}, {"Invalid String: %{public}s", "IsRecvMsgValid"},
                       field.name);
            Refuse(RecordTypeName("INVALID_STR"), field.name, "");
            return false;
        }
    }
    return true;
}

bool IsRecvMsgValid(const FileMigrateRcvMsg& msg) {
    if (!AreTextsValid(msg)) {
        return false;
    }
    if (static_cast<std::uint32_t>(msg.cmd) >= COMMAND_COUNT) {
        LogFailure({RecordTypeName("INVALID_CMD"), EINVAL, msg.src, msg.dst}, "Invalid cmd: %{public}d", msg.cmd);
        Refuse(RecordTypeName("INVALID_CMD"), "cmd", std::to_string(msg.cmd));
        return false;
    }
    if (std::strchr(msg.perm, '-') != nullptr) {
        LogFailure({RecordTypeName("INVALID_MODE"), EINVAL, msg.src, msg.dst}, "Invalid perm: %{public}s", msg.perm);
        Refuse(RecordTypeName("INVALID_MODE"), "perm", msg.perm);
        return false;
    }
    if (static_cast<std::uint32_t>(msg.recurseOpt) > MAX_RECURSE_OPT) {
        LogFailure({RecordTypeName("INVALID_RECURSEOPT"), EINVAL, msg.src, msg.dst}, "Invalid recurseOpt: %{public}d",
                   msg.recurseOpt);
        Refuse(RecordTypeName("INVALID_RECURSEOPT"), "recurseOpt", std::to_string(msg.recurseOpt));
        return false;
    }
    return true;
}

/// Runs the command and writes the reply. A request that runs out of memory is answered with ENOMEM. Memory is not
/// allocated after the first part of a reply was sent.
void Answer(int fd, const FileMigrateRcvMsg& msg) {
    extraInfo info{};
    try {
        const std::int32_t result = COMMAND_TABLE[static_cast<std::size_t>(msg.cmd)].handler(&msg, info);
        SendResMsg(fd, result, info);
        if (info.strs.Joined().size() > LARGE_REPLY) {
            info.strs = {};
            malloc_trim(0);  // each worker's heap would keep the memory
        }
    } catch (const std::bad_alloc&) {
        LogFailure({"HANDLE_CMD", ENOMEM, msg.src, msg.dst}, "out of memory, cmd: %{public}d, fd: %{public}d", msg.cmd,
                   fd);
        info = {ENOMEM, {}};
        SendResMsg(fd, -1, info);
    }
}

}  // namespace

void HandleCmd(const int& fd, const char* recvBuf, const int& recvBufSize) {
    if (recvBuf == nullptr || recvBufSize != static_cast<int>(sizeof(FileMigrateRcvMsg))) {
        LogFailure({RecordTypeName("RECVBUFSIZE"), EINVAL}, "recvBufSize error: %{public}d, expect: %{public}lu",
                   recvBufSize, sizeof(FileMigrateRcvMsg));
        Refuse(RecordTypeName("RECVBUFSIZE"), "recvbufsize", std::to_string(recvBufSize));
        return;
    }
    const auto* msg = reinterpret_cast<const FileMigrateRcvMsg*>(recvBuf);
    if (!IsRecvMsgValid(*msg)) {
        LogRoutine(LogLevel::Error, "Invalid RecvMsg!");  // follows the line that says what is invalid
        return;
    }
    Log({LogLevel::Error, COMMAND_TABLE[static_cast<std::size_t>(msg->cmd)].kind},
        "cmd: %{public}d, src: %{public}s, dst: %{public}s, user: %{public}s, group: %{public}s, "
        "recurseOpt: %{public}d, perm: %{public}s, fd: %{public}d",
        msg->cmd, msg->src, msg->dst, msg->user, msg->group, msg->recurseOpt, msg->perm, fd);
    Answer(fd, *msg);
}

}  // namespace TAVO::FileMigrateOrvane
