// The C interface. Every function makes a request of its arguments, gives it to the session and converts the reply into
// a plain struct.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "file_migrate_client.h"
#include "file_migrate_client.hpp"
#include "listing.h"
#include "session.h"

struct file_migrate_client {
    TAVO::FileMigrateClient::Session session;
};

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

/// The name of the first argument that must not be NULL and is; nullptr if there is none.
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

/// Why a request is not even looked at; FILE_MIGRATE_ANSWERED if there is nothing wrong.
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

/// Carries a request out and waits for the reply.
file_migrate_reply Run(file_migrate_client* client, const file_migrate_request& request, EntryTaker taker = {}) {
    try {
        const file_migrate_reply checked = Check(client, &request);
        return checked.status != FILE_MIGRATE_ANSWERED
                   ? checked
                   : ToC(client->session.Run(FromC(request), TakerFor(request.command, std::move(taker))));
    } catch (...) {  // can only be std::bad_alloc
        return NoMemory();
    }
}

file_migrate_request RequestFor(file_migrate_command command, const char* src) {
    return FILE_MIGRATE_REQUEST(command, src);
}

file_migrate_reply Run(file_migrate_client* client, file_migrate_command command, const char* src) {
    return Run(client, RequestFor(command, src));
}

file_migrate_reply Run(file_migrate_client* client, file_migrate_command command, const char* src, const char* dst) {
    file_migrate_request request = RequestFor(command, src);
    request.dst = dst;
    return Run(client, request);
}

file_migrate_reply Run(file_migrate_client* client, file_migrate_command command, const char* src,
                       file_migrate_recursion recursion) {
    file_migrate_request request = RequestFor(command, src);
    request.recursion = recursion;
    return Run(client, request);
}

struct NameBlock {
    std::string names;  ///< each followed by a NUL
    std::vector<bool> areDirectories;
};

/// Puts the entries and then their names into one block of memory, so that one call releases them.
file_migrate_entry* ToC(const NameBlock& block) {
    const std::size_t size = block.areDirectories.size() * sizeof(file_migrate_entry);
    if (size == 0) {
        return nullptr;
    }
    auto* const entries = static_cast<file_migrate_entry*>(::operator new(size + block.names.size()));
    const char* name = reinterpret_cast<char*>(entries) + size;
    std::memcpy(reinterpret_cast<char*>(entries) + size, block.names.data(), block.names.size());
    file_migrate_entry* next = entries;
    for (const bool isDirectory : block.areDirectories) {
        new (next++) file_migrate_entry{name, isDirectory ? 1 : 0};
        name += std::strlen(name) + 1;
    }
    return entries;
}

ClientOptions FromC(const file_migrate_options& options) {
    ClientOptions result;
    if (options.socket_path != nullptr) {
        result.socketPath = options.socket_path;
    }
    result.connectLimit = std::chrono::milliseconds(options.connect_limit_ms);
    result.replyLimit = std::chrono::milliseconds(options.reply_limit_ms);
    result.daemonUser = options.daemon_user;
    return result;
}

}  // namespace
}  // namespace TAVO::FileMigrateClient

using namespace TAVO::FileMigrateClient;

using Handle = file_migrate_client;
using Answer = file_migrate_reply;

std::uint32_t file_migrate_client_version(void) {
    return FILE_MIGRATE_CLIENT_VERSION;
}

Handle* file_migrate_client_new(const file_migrate_options* options) {
    try {
        return new Handle{Session(options == nullptr ? ClientOptions() : FromC(*options))};
    } catch (...) {  // as above
        return nullptr;
    }
}

void file_migrate_client_free(Handle* client) {
    delete client;
}

void file_migrate_release(void* memory) {
    ::operator delete(memory);
}

void file_migrate_set_interruptible(Handle* client, int enabled) {
    if (client != nullptr) {
        client->session.SetInterruptible(enabled != 0);
    }
}

Answer file_migrate_connect(Handle* client) {
    if (client == nullptr) {
        return Check(nullptr, nullptr);
    }
    try {
        return ToC(client->session.Connect());
    } catch (...) {  // as above
        client->session.Cancel();
        return NoMemory();
    }
}

Answer file_migrate_is_exist(Handle* client, const char* path) {
    return Run(client, FILE_MIGRATE_IS_EXIST, path);
}

Answer file_migrate_is_dir(Handle* client, const char* path) {
    return Run(client, FILE_MIGRATE_IS_DIR, path);
}

file_migrate_listing file_migrate_list_dir(Handle* client, const char* path) {
    file_migrate_listing listing{{}, nullptr, 0};
    NameBlock block;
    const auto keep = [&block](std::string_view name, bool isDirectory) {
        block.names.append(name.data(), name.size() + 1);
        block.areDirectories.push_back(isDirectory);
        return true;
    };
    listing.reply = Run(client, RequestFor(FILE_MIGRATE_LIST_DIR, path), keep);
    if (listing.reply.result == 0) {
        try {
            listing.entries = ToC(block);
            listing.count = block.areDirectories.size();
        } catch (...) {  // as above
            listing.reply = NoMemory();
        }
    }
    return listing;
}

Answer file_migrate_list_each(Handle* client, const char* path, file_migrate_entry_taker* taker, void* context) {
    return Run(client, RequestFor(FILE_MIGRATE_LIST_DIR, path), FromC(taker, context));
}

file_migrate_path file_migrate_existed_path(Handle* client, const char* path) {
    file_migrate_path existing{{}, nullptr};
    const auto keep = [&existing](std::string_view found, bool /*isDirectory*/) {
        existing.path = static_cast<char*>(::operator new(found.size() + 1));
        std::memcpy(existing.path, found.data(), found.size() + 1);
        return true;
    };
    existing.reply = Run(client, RequestFor(FILE_MIGRATE_EXISTED_PATH, path), keep);
    return existing;
}

Answer file_migrate_used_space(Handle* client, const char* path) {
    return Run(client, FILE_MIGRATE_USED_SPACE, path);
}

Answer file_migrate_max_size(Handle* client, const char* path) {
    return Run(client, FILE_MIGRATE_MAX_SIZE, path);
}

Answer file_migrate_mkdir(Handle* client, const char* path, file_migrate_recursion recursion) {
    return Run(client, FILE_MIGRATE_MKDIR, path, recursion);
}

Answer file_migrate_prepare_dir(Handle* client, const char* path, const char* user, const char* group, const char* perm,
                                file_migrate_recursion recursion) {
    file_migrate_request request = RequestFor(FILE_MIGRATE_PREPARE_DIR, path);
    request.user = user;
    request.group = group;
    request.perm = perm;
    request.recursion = recursion;
    return Run(client, request);
}

Answer file_migrate_move_sub(Handle* client, const char* src, const char* dst) {
    return Run(client, FILE_MIGRATE_MOVE_SUB, src, dst);
}

Answer file_migrate_move_all(Handle* client, const char* src, const char* dst) {
    return Run(client, FILE_MIGRATE_MOVE_ALL, src, dst);
}

Answer file_migrate_copy_sub(Handle* client, const char* src, const char* dst) {
    return Run(client, FILE_MIGRATE_COPY_SUB, src, dst);
}

Answer file_migrate_copy_all(Handle* client, const char* src, const char* dst) {
    return Run(client, FILE_MIGRATE_COPY_ALL, src, dst);
}

Answer file_migrate_copy_comb(Handle* client, const char* src, const char* dst, const char* user, const char* group,
                              const char* perm) {
    file_migrate_request request = RequestFor(FILE_MIGRATE_COPY_COMB, src);
    request.dst = dst;
    request.user = user;
    request.group = group;
    request.perm = perm;
    return Run(client, request);
}

Answer file_migrate_remove(Handle* client, const char* path) {
    return Run(client, FILE_MIGRATE_REMOVE, path);
}

Answer file_migrate_try_remove(Handle* client, const char* path) {
    return Run(client, FILE_MIGRATE_TRY_REMOVE, path);
}

Answer file_migrate_restorecon(Handle* client, const char* path, file_migrate_recursion recursion) {
    return Run(client, FILE_MIGRATE_RESTORECON, path, recursion);
}

Answer file_migrate_restorecon_from_parent(Handle* client, const char* path) {
    return Run(client, FILE_MIGRATE_RESTORECON_FROM_PARENT, path);
}

Answer file_migrate_chown(Handle* client, const char* path, const char* user, const char* group,
                          file_migrate_recursion recursion) {
    file_migrate_request request = RequestFor(FILE_MIGRATE_CHOWN, path);
    request.user = user;
    request.group = group;
    request.recursion = recursion;
    return Run(client, request);
}

Answer file_migrate_chmod(Handle* client, const char* path, const char* perm, file_migrate_recursion recursion) {
    file_migrate_request request = RequestFor(FILE_MIGRATE_CHMOD, path);
    request.perm = perm;
    request.recursion = recursion;
    return Run(client, request);
}

file_migrate_owner_field file_migrate_unknown_owner(const char* user, const char* group) {
    try {
        return static_cast<file_migrate_owner_field>(
            UnknownOwner(user == nullptr ? "" : user, group == nullptr ? "" : group));
    } catch (...) {  // as above
        return FILE_MIGRATE_NO_OWNER;
    }
}

Answer file_migrate_begin(Handle* client, const file_migrate_request* request) {
    try {
        const Answer checked = Check(client, request);
        return checked.status != FILE_MIGRATE_ANSWERED
                   ? checked
                   : ToC(client->session.Begin(FromC(*request),
                                               TakerFor(request->command, FromC(request->taker, request->context))));
    } catch (...) {  // as above
        return NoMemory();
    }
}

int file_migrate_fd(const Handle* client) {
    return client == nullptr ? -1 : client->session.Descriptor();
}

short file_migrate_events(const Handle* client) {
    return client == nullptr ? short{0} : client->session.Events();
}

int file_migrate_timeout(const Handle* client) {
    return client == nullptr ? 0 : client->session.Timeout();
}

int file_migrate_process(Handle* client) {
    if (client == nullptr) {
        return 1;  // file_migrate_finish says why
    }
    try {
        return client->session.Process() ? 1 : 0;
    } catch (...) {  // as above
        client->session.Abort({std::make_error_code(std::errc::not_enough_memory), {}});
        return 1;
    }
}

Answer file_migrate_finish(Handle* client) {
    if (client == nullptr) {
        return Check(nullptr, nullptr);
    }
    try {
        return ToC(client->session.Finish());
    } catch (...) {  // as above
        client->session.Cancel();
        return NoMemory();
    }
}

void file_migrate_cancel(Handle* client) {
    if (client != nullptr) {
        client->session.Cancel();
    }
}
