// The C interface. Every function calls a method of Client and converts the reply into a plain struct.
#include <cstring>
#include <new>
#include <type_traits>

#include "file_migrate_client.h"
#include "file_migrate_client.hpp"

struct file_migrate_client {
    TAVO::FileMigrateClient::Client client;
};

namespace TAVO::FileMigrateClient {
namespace {

static_assert(FILE_MIGRATE_INVALID_REQUEST == static_cast<int>(ClientErrc::InvalidRequest));
static_assert(FILE_MIGRATE_CONNECTION_CLOSED == static_cast<int>(ClientErrc::ConnectionClosed));
static_assert(FILE_MIGRATE_TIMED_OUT == static_cast<int>(ClientErrc::TimedOut));
static_assert(FILE_MIGRATE_MALFORMED_REPLY == static_cast<int>(ClientErrc::MalformedReply));
static_assert(FILE_MIGRATE_UNTRUSTED_PEER == static_cast<int>(ClientErrc::UntrustedPeer));

file_migrate_reply NoAnswer(file_migrate_status status, std::string_view message, int systemError = 0) {
    file_migrate_reply reply{status, -1, 0, systemError, {}};
    reply.message[message.copy(reply.message, sizeof(reply.message) - 1)] = '\0';
    return reply;
}

file_migrate_reply ToC(const Failure& failure) {
    if (!failure) {
        return {FILE_MIGRATE_ANSWERED, 0, 0, 0, {}};
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

/// Puts the entries and then their names into one block of memory, so that one call releases them.
file_migrate_listing ToC(const Listing& listing) {
    file_migrate_listing result{ToC(static_cast<const Reply&>(listing)), nullptr, listing.entries.size()};
    if (!listing.Succeeded() || listing.entries.empty()) {
        return result;
    }
    std::size_t size = result.count * sizeof(file_migrate_entry);
    for (const Entry& entry : listing.entries) {
        size += entry.name.size() + 1;
    }
    result.entries = static_cast<file_migrate_entry*>(::operator new(size));
    char* name = reinterpret_cast<char*>(result.entries + result.count);
    file_migrate_entry* next = result.entries;
    for (const Entry& entry : listing.entries) {
        new (next++) file_migrate_entry{name, entry.isDirectory ? 1 : 0};
        name = static_cast<char*>(std::memcpy(name, entry.name.c_str(), entry.name.size() + 1)) + entry.name.size() + 1;
    }
    return result;
}

file_migrate_path ToC(const ExistedPathReply& reply) {
    file_migrate_path result{ToC(static_cast<const Reply&>(reply)), nullptr};
    if (reply.Succeeded()) {
        result.path = static_cast<char*>(::operator new(reply.path.size() + 1));
        std::memcpy(result.path, reply.path.c_str(), reply.path.size() + 1);
    }
    return result;
}

/// @param position  the number of the argument, counted from 1
file_migrate_reply NullArgument(int position) {
    char message[] = "argument 0 is NULL";
    *std::strchr(message, '0') = static_cast<char>('0' + position);
    return NoAnswer(FILE_MIGRATE_NULL_ARGUMENT, message);
}

bool IsNull(const void* argument) {
    return argument == nullptr;
}

bool IsNull(file_migrate_recursion /*argument*/) {
    return false;
}

Recursion FromC(file_migrate_recursion recursion) {
    return static_cast<Recursion>(recursion);
}

const char* FromC(const char* text) {
    return text;
}

/// @tparam Result  the plain struct, either a reply or a struct that contains one
template <typename Result>
Result Unanswered(const file_migrate_reply& reply) {
    if constexpr (std::is_same_v<Result, file_migrate_reply>) {
        return reply;
    } else {
        Result result{};
        result.reply = reply;
        return result;
    }
}

template <typename Result = file_migrate_reply, typename Method, typename... Arguments>
Result Call(file_migrate_client* handle, Method method, Arguments... arguments) {
    int position = 0;
    for (const bool isNull : {IsNull(handle), IsNull(arguments)...}) {
        ++position;
        if (isNull) {
            return Unanswered<Result>(NullArgument(position));
        }
    }
    try {
        return ToC((handle->client.*method)(FromC(arguments)...));
    } catch (...) {  // can only be std::bad_alloc
        return Unanswered<Result>(NoAnswer(FILE_MIGRATE_NO_MEMORY, "out of memory"));
    }
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

Handle* file_migrate_client_new(const file_migrate_options* options) {
    try {
        return new Handle{Client(options == nullptr ? ClientOptions() : FromC(*options))};
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

Answer file_migrate_connect(Handle* client) {
    return Call(client, &Client::Connect);
}

Answer file_migrate_is_exist(Handle* client, const char* path) {
    return Call(client, &Client::IsExist, path);
}

Answer file_migrate_is_dir(Handle* client, const char* path) {
    return Call(client, &Client::IsDir, path);
}

file_migrate_listing file_migrate_list_dir(Handle* client, const char* path) {
    return Call<file_migrate_listing>(client, &Client::ListDir, path);
}

file_migrate_path file_migrate_existed_path(Handle* client, const char* path) {
    return Call<file_migrate_path>(client, &Client::ExistedPath, path);
}

Answer file_migrate_used_space(Handle* client, const char* path) {
    return Call(client, &Client::UsedSpace, path);
}

Answer file_migrate_max_size(Handle* client, const char* path) {
    return Call(client, &Client::MaxSize, path);
}

Answer file_migrate_mkdir(Handle* client, const char* path, file_migrate_recursion recursion) {
    return Call(client, &Client::MkDir, path, recursion);
}

Answer file_migrate_prepare_dir(Handle* client, const char* path, const char* user, const char* group, const char* perm,
                                file_migrate_recursion recursion) {
    return Call(client, &Client::PrepareDir, path, user, group, perm, recursion);
}

Answer file_migrate_move_sub(Handle* client, const char* src, const char* dst) {
    return Call(client, &Client::MoveSub, src, dst);
}

Answer file_migrate_move_all(Handle* client, const char* src, const char* dst) {
    return Call(client, &Client::MoveAll, src, dst);
}

Answer file_migrate_copy_sub(Handle* client, const char* src, const char* dst) {
    return Call(client, &Client::CopySub, src, dst);
}

Answer file_migrate_copy_all(Handle* client, const char* src, const char* dst) {
    return Call(client, &Client::CopyAll, src, dst);
}

Answer file_migrate_copy_comb(Handle* client, const char* src, const char* dst, const char* user, const char* group,
                              const char* perm) {
    return Call(client, &Client::CopyComb, src, dst, user, group, perm);
}

Answer file_migrate_remove(Handle* client, const char* path) {
    return Call(client, &Client::Remove, path);
}

Answer file_migrate_try_remove(Handle* client, const char* path) {
    return Call(client, &Client::TryRemove, path);
}

Answer file_migrate_restorecon(Handle* client, const char* path, file_migrate_recursion recursion) {
    return Call(client, &Client::Restorecon, path, recursion);
}

Answer file_migrate_restorecon_from_parent(Handle* client, const char* path) {
    return Call(client, &Client::RestoreconFromParent, path);
}

Answer file_migrate_chown(Handle* client, const char* path, const char* user, const char* group,
                          file_migrate_recursion recursion) {
    return Call(client, &Client::ChOwn, path, user, group, recursion);
}

Answer file_migrate_chmod(Handle* client, const char* path, const char* perm, file_migrate_recursion recursion) {
    return Call(client, &Client::ChMod, path, perm, recursion);
}
