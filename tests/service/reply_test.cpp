// How result strings are packed into packages, and how long a client may take to read them.
#include "reply.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "file_migrate_orvane.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

TEST(PackStringsTest, FillsPackagesUpToTheirWidth) {
    const std::string big(2047, 'b');
    const struct {
        const char* name;
        StringList strs;
        std::vector<std::string> packages;
    } rows[] = {
        {"none", {}, {}},
        {"three", {"a", "b", "c"}, {"a/b/c"}},
        {"empty string first", {"", "x"}, {"/x"}},
        {"only an empty string", {""}, {""}},
        {"exactly full", {big, big}, {big + "/" + big}},
        {"one byte too many", {big, big + "b", "c"}, {big, big + "b/c"}},
        {"too long for any package", {"a", std::string(5000, 'c'), "d"}, {"a", std::string(5000, 'c'), "d"}},
    };
    for (const auto& row : rows) {
        const std::vector<std::string_view> packed = PackStrings(row.strs);
        EXPECT_EQ(std::vector<std::string>(packed.begin(), packed.end()), row.packages) << row.name;
    }
}

/// Each send is in time, but the whole reply may take 5 s and a second for each 128 KB.
TEST(SendStrPkgsTest, EndsTheStreamOfAClientThatReadsNowAndThen) {
    using std::chrono::steady_clock, std::chrono::milliseconds;
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const UniqueFd worker(ends[0]), client(ends[1]);
    FileMigrateStrPkg package{};
    std::jthread reader([&](const std::stop_token& stop) {
        while (!stop.stop_requested() && recv(client.Get(), &package, sizeof(package), MSG_WAITALL) > 0) {
            std::this_thread::sleep_for(milliseconds{400});
        }
    });
    const auto begin = steady_clock::now();
    SendStrPkgs(worker.Get(), 1000, std::vector<std::string_view>(1000, "text"));
    const auto passed = steady_clock::now() - begin;
    EXPECT_TRUE(passed > milliseconds{4900} && passed < milliseconds{9000}) << passed / milliseconds{1};
    reader.request_stop();
    reader.join();
    while (recv(client.Get(), &package, sizeof(package), 0) > 0) {
    }
    EXPECT_EQ(recv(client.Get(), &package, sizeof(package), MSG_DONTWAIT), 0) << "the client sees the end";
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
