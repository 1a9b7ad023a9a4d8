#include "c_conversion.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace TAVO::FileMigrateClient {
namespace {

static_assert(FILE_MIGRATE_CLIENT_VERSION == BUILT_VERSION, "client_version.h and the project's version differ");
static_assert(FILE_MIGRATE_INVALID_REQUEST == static_cast<int>(ClientErrc::InvalidRequest));
static_assert(FILE_MIGRATE_CONNECTION_CLOSED == static_cast<int>(ClientErrc::ConnectionClosed));
static_assert(FILE_MIGRATE_TIMED_OUT == static_cast<int>(ClientErrc::TimedOut));
static_assert(FILE_MIGRATE_MALFORMED_REPLY == static_cast<int>(ClientErrc::MalformedReply));
static_assert(FILE_MIGRATE_UNTRUSTED_PEER == static_cast<int>(ClientErrc::UntrustedPeer));
static_assert(FILE_MIGRATE_CANCELLED == static_cast<int>(ClientErrc::Cancelled));
static_assert(FILE_MIGRATE_BUSY == static_cast<int>(ClientErrc::Busy));
static_assert(FILE_MIGRATE_COPY_COMB == static_cast<int>(Command::CopyComb));

/// The fields that each command needs, in the order of the command numbers: s(rc), d(st), u(ser), g(roup), p(erm) and
/// r(ecursion).
constexpr std::string_view NEEDED_FIELDS[] = {"s", "s", "s",  "sugpr", "sd",  "sd", "sd", "sd", "s",    "sr",
                                              "s", "s", "sr", "sugr",  "spr", "s",  "s",  "s",  "sdugp"};
static_assert(std::size(NEEDED_FIELDS) == FileMigrateOrvane::COMMAND_COUNT);

file_migrate_reply NoAnswer(file_migrate_status status, std::string_view message, int systemError = 0) {
    file_migrate_reply reply{status, -1, 0, systemError, {}};
    reply.message[message.copy(reply.message, sizeof(reply.message) - 1)] = '\0';
    return reply;
}

/// The name of the first required argument that is NULL; nullptr if none is missing.
const char* MissingField(const file_migrate_request& request) {
    const struct {
        char letter;
        const char* name;
        const char* value;
    } fields[] = {{'s', "src", request.src},
                  {'d', "dst", request.dst},
                  {'u', "user", request.user},
                  {'g', "group", request.group},
                  {'p', "perm", request.perm}};
    const std::string_view needed = NEEDED_FIELDS[request.command];
    const auto* const found = std::find_if(std::begin(fields), std::end(fields), [needed](const auto& field) {
        return field.value == nullptr && needed.find(field.letter) != needed.npos;
    });
    return found == std::end(fields) ? nullptr : found->name;
}

}  // namespace

file_migrate_reply NoMemory() {
    return NoAnswer(FILE_MIGRATE_NO_MEMORY, "out of memory");
}

file_migrate_reply ToC(const Failure& failure) {
    if (!failure) {
        return {FILE_MIGRATE_ANSWERED, 0, 0, 0, {}};
    }
    if (failure.code == std::make_error_code(std::errc::not_enough_memory)) {
        return NoMemory();
    }
    const int code = failure.code.value();
    return failure.code.category() == ClientCategory()
               ? NoAnswer(static_cast<file_migrate_status>(code), failure.Message())
               : NoAnswer(FILE_MIGRATE_SYSTEM_ERROR, failure.Message(), code);
}

file_migrate_reply ToC(const Reply& reply) {
    return reply.failure ? ToC(reply.failure)
                         : file_migrate_reply{FILE_MIGRATE_ANSWERED, reply.result, reply.errCode, 0, {}};
}

file_migrate_reply Check(const file_migrate_client* client, const file_migrate_request* request) {
    if (client == nullptr || request == nullptr) {
        return NoAnswer(FILE_MIGRATE_NULL_ARGUMENT, client == nullptr ? "client is NULL" : "request is NULL");
    }
    if (request->size != sizeof(*request)) {
        return NoAnswer(FILE_MIGRATE_INVALID_REQUEST, "file_migrate_request has an unknown size");
    }
    if (static_cast<unsigned int>(request->command) >= std::size(NEEDED_FIELDS)) {
        return NoAnswer(FILE_MIGRATE_INVALID_REQUEST, "there is no such command");
    }
    if (const char* const missing = MissingField(*request)) {
        return NoAnswer(FILE_MIGRATE_NULL_ARGUMENT, std::string(missing) + " is NULL");
    }
    return ToC(Failure());
}

ClientOptions FromC(const file_migrate_options* options) {
    ClientOptions result;
    if (options == nullptr) {
        return result;
    }
    if (options->socket_path != nullptr) {
        result.socketPath = options->socket_path;
    }
    result.connectLimit = std::chrono::milliseconds(options->connect_limit_ms);
    result.replyLimit = std::chrono::milliseconds(options->reply_limit_ms);
    result.daemonUser = options->daemon_user;
    return result;
}

Request FromC(const file_migrate_request& request) {
    const auto text = [](const char* value) { return value == nullptr ? std::string_view() : value; };
    const bool hasRecursion = NEEDED_FIELDS[request.command].ends_with('r');
    return {static_cast<Command>(request.command),
            text(request.src),
            text(request.dst),
            text(request.user),
            text(request.group),
            text(request.perm),
            hasRecursion ? request.recursion : 0};
}

PackageTaker TakerFor(file_migrate_command command, EntryTaker taker) {
    switch (command) {
        case FILE_MIGRATE_LIST_DIR:
            return TakeEntries(std::move(taker));
        case FILE_MIGRATE_EXISTED_PATH:
            return TakePath(std::move(taker));
        default:
            return {};
    }
}

EntryTaker FromC(file_migrate_entry_taker* taker, void* context) {
    return [taker, context](std::string_view name, bool isDirectory) {
        return taker == nullptr || taker(context, name.data(), isDirectory ? 1 : 0) == 0;
    };
}

}  // namespace TAVO::FileMigrateClient
