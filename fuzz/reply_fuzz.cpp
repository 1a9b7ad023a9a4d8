// Feeds any bytes to the client library as a reply. The first byte selects the request; if its top bit is set, zeros
// fill the last package. The other bytes are the reply, after which the fake daemon closes the connection. The C and
// the C++ interface must read the same result.
#include "fake_daemon.h"
#include "file_migrate_client.h"
#include "file_migrate_client.hpp"

using namespace TAVO::FileMigrateOrvane;
using namespace TAVO::FileMigrateClient;

static void Require(bool condition) {
    condition ? void() : __builtin_trap();
}

static void RequireSame(const Reply& reply, const file_migrate_reply& plain) {
    Require(plain.result == (reply.failure ? -1 : reply.result));
    Require(plain.message == (reply.failure ? reply.failure.Message() : "").substr(0, sizeof(plain.message) - 1));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string answer(data + (size > 0 ? 1 : 0), data + size);
    const int choice = size > 0 ? data[0] : 0;
    if (choice >= 0x80) {
        constexpr std::size_t package = sizeof(FileMigrateStrPkg);
        answer.append(package - (answer.size() + package - sizeof(FileMigrateResMsg)) % package, '\0');
    }
    Testing::FakeDaemon daemon({{answer, true}, {answer, true}});
    Client client({daemon.socketPath, std::chrono::seconds(1), std::chrono::seconds(1)});
    const file_migrate_options options{daemon.socketPath.c_str(), 1000, 1000, 0};
    file_migrate_client* const handle = file_migrate_client_new(&options);
    if (choice % 4 == 0) {
        RequireSame(client.UsedSpace("/"), file_migrate_used_space(handle, "/"));
    } else if (choice % 4 == 1) {
        const ExistedPathReply reply = client.ExistedPath("/");
        const file_migrate_path plain = file_migrate_existed_path(handle, "/");
        RequireSame(reply, plain.reply);
        Require(plain.path == nullptr ? reply.path.empty() : reply.path == plain.path);
        file_migrate_release(plain.path);
    } else {
        const Listing listing = client.ListDir("/");
        const file_migrate_listing plain = file_migrate_list_dir(handle, "/");
        RequireSame(listing, plain.reply);
        Require(plain.count == listing.entries.size());
        for (std::size_t i = 0; i < plain.count; ++i) {
            Require(listing.entries[i] == Entry{plain.entries[i].name, plain.entries[i].is_directory != 0});
        }
        file_migrate_release(plain.entries);
    }
    file_migrate_client_free(handle);
    return 0;
}
