// How result strings are packed into packages, and how long a client may take to read them.
#include "reply.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "file_migrate_orvane.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

TEST(PackStringsTest, FillsPackagesUpToTheirWidth) {
    const std::string big(2047, 'b');
    const std::tuple<const char*, StringList, std::vector<std::string>> rows[] = {
        {"three", {"a", "b", "c"}, {"a/b/c"}},
        {"empty string first", {"", "x"}, {"/x"}},
        {"only an empty string", {""}, {""}},
        {"exactly full", {big, big}, {big + "/" + big}},
        {"one byte too many", {big, big + "b", "c"}, {big, big + "b/c"}},
        {"too long for any package", {"a", std::string(5000, 'c'), "d"}, {"a", std::string(5000, 'c'), "d"}},
    };
    for (const auto& [name, strs, packages] : rows) {
        const std::vector<std::string_view> packed = PackStrings(strs);
        EXPECT_EQ(std::vector<std::string>(packed.begin(), packed.end()), packages) << name;
    }
}

/// Sends packages to a client that pauses after each one, with little room in between.
/// @return how many it received before the end of the stream, and how long it took to send them
std::pair<std::size_t, std::chrono::milliseconds> Transfer(std::size_t count, std::chrono::milliseconds pause) {
    int ends[2], room = 8192;
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    EXPECT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof(room)), 0);
    const UniqueFd client(ends[1]);
    auto passed = std::async(std::launch::async, [end = ends[0], count] {
        const UniqueFd worker(end);
        const auto begin = std::chrono::steady_clock::now();
        SendStrPkgs(worker.Get(), static_cast<int>(count), std::vector<std::string_view>(count, "text"));
        return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    });
    FileMigrateStrPkg package{};
    std::size_t received = 0;
    while (recv(client.Get(), &package, sizeof(package), MSG_WAITALL) == sizeof(package)) {
        ++received;
        std::this_thread::sleep_for(pause);
    }
    return {received, passed.get()};
}

/// Each send is in time, but the whole reply may take only 5 s and a second for each 128 KB.
TEST(SendStrPkgsTest, SlowClientGetsTheWholeReplyUnlessItReadsTooSlowly) {
    using std::chrono::milliseconds;
    auto steady = std::async(std::launch::async, Transfer, 200, milliseconds{31});  // 130 KiB/s
    const auto [received, passed] = Transfer(1000, milliseconds{400});
    EXPECT_TRUE(received < 30 && passed > milliseconds{4900} && passed < milliseconds{10000}) << received;
    EXPECT_EQ(steady.get().first, 200U);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
