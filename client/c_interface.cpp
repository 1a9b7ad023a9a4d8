// The C interface. Every function makes a request of its arguments, gives it to the session and converts the reply into
// a plain struct.
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "c_conversion.h"
#include "session.h"

struct file_migrate_client {
    TAVO::FileMigrateClient::Session session;
};

namespace TAVO::FileMigrateClient {
namespace {

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
        return new Handle{Session(FromC(options))};
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
