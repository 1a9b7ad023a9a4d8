// The client library against a daemon that answers with what the test wants.
#include <gtest/gtest.h>

#include <functional>

#include "fake_daemon.h"
#include "file_migrate_client.h"

namespace TAVO::FileMigrateOrvane {
namespace {

using std::chrono::milliseconds;

ClientOptions OptionsFor(const std::string& socketPath, milliseconds replyLimit = milliseconds(5000)) {
    return {.socketPath = socketPath, .connectLimit = milliseconds(200), .replyLimit = replyLimit};
}

TEST(ClientRequest, WhatTheDaemonWouldRefuseIsNotSent) {
    const std::string nul("/a\0b", 4);
    const struct {
        const char* complaint;
        std::function<Reply(Client&)> call;
    } rows[] = {
        {"src is longer than 4095", [](Client& c) { return c.IsExist(std::string(4096, 'a')); }},
        {"src holds a NUL", [&](Client& c) { return c.Remove(nul); }},
        {"src contains \"../\"", [](Client& c) { return c.IsExist("/a/../b"); }},
        {"src contains \"../\"", [](Client& c) { return c.IsExist("../"); }},
        {"dst is longer than 4095", [](Client& c) { return c.MoveAll("/a", std::string(4096, 'a')); }},
        {"dst contains \"../\"", [](Client& c) { return c.MoveAll("/a", "/b../c"); }},
        {"user is longer than 35", [](Client& c) { return c.ChOwn("/a", std::string(36, 'u'), "g"); }},
        {"group is longer than 35", [](Client& c) { return c.ChOwn("/a", "u", std::string(36, 'g')); }},
        {"perm is longer than 15", [](Client& c) { return c.ChMod("/a", std::string(16, '7')); }},
        {"perm contains \"-\"", [](Client& c) { return c.ChMod("/a", "-1"); }},
        {"recurseOpt is 3", [](Client& c) { return c.MkDir("/a", static_cast<Recursion>(3)); }},
        {"recurseOpt is -1", [](Client& c) { return c.MkDir("/a", static_cast<Recursion>(-1)); }},
    };
    FakeDaemon daemon;
    Client client(OptionsFor(daemon.socketPath));
    for (const auto& row : rows) {
        const Reply reply = row.call(client);
        EXPECT_EQ(reply.failure.code, ClientErrc::InvalidRequest) << row.complaint;
        EXPECT_EQ(reply.failure.detail.find(row.complaint), 0U) << reply.failure.Message();
    }
    // The longest of everything, and two dots without a slash behind them, are not refused.
    EXPECT_TRUE(
        client
            .CopyComb(std::string(4095, 's'), "/a/..", std::string(35, 'u'), std::string(35, 'g'), std::string(15, '7'))
            .Succeeded());
    EXPECT_EQ(daemon.Requests().size(), 1U);
}

TEST(ClientRequest, EveryCommandHasItsNumberAndFields) {
    FakeDaemon daemon;
    Client client(OptionsFor(daemon.socketPath));
    const Recursion all = Recursion::Recursive;
    (void)client.IsExist("s"), (void)client.IsDir("s"), (void)client.ListDir("s");
    (void)client.PrepareDir("s", "u", "g", "p", all);
    (void)client.MoveSub("s", "d"), (void)client.MoveAll("s", "d"), (void)client.CopySub("s", "d");
    (void)client.CopyAll("s", "d"), (void)client.Remove("s"), (void)client.Restorecon("s", all);
    (void)client.RestoreconFromParent("s"), (void)client.TryRemove("s"), (void)client.MkDir("s");
    (void)client.ChOwn("s", "u", "g", all), (void)client.ChMod("s", "p"), (void)client.ExistedPath("s");
    (void)client.UsedSpace("s"), (void)client.MaxSize("s"), (void)client.CopyComb("s", "d", "u", "g", "p");
    const char* wanted[] = {"s", "s", "s",  "sugp2", "sd",  "sd", "sd", "sd", "s",    "s2",
                            "s", "s", "s1", "sug2",  "sp1", "s",  "s",  "s",  "sdugp"};
    const std::vector<FileMigrateRcvMsg> requests = daemon.Requests();
    ASSERT_EQ(requests.size(), COMMAND_COUNT);
    for (std::size_t number = 0; number < requests.size(); ++number) {
        const FileMigrateRcvMsg& sent = requests[number];
        EXPECT_EQ(sent.cmd, static_cast<std::int32_t>(number));
        const std::string option = sent.recurseOpt == 0 ? "" : std::to_string(sent.recurseOpt);
        EXPECT_EQ(std::string(sent.src) + sent.dst + sent.user + sent.group + sent.perm + option, wanted[number])
            << "command " << number;
    }
}

TEST(ClientReply, StringsAreRebuiltFromPackages) {
    FakeDaemon daemon({{ReplyBytes(0, 0, {"sub:1/a.txt:0", "with:1:0"})},
                       {ReplyBytes(0, 0)},
                       {ReplyBytes(-1, ENOTDIR)},
                       {ReplyBytes(0, 0, {"/data/a"})}});
    Client client(OptionsFor(daemon.socketPath));
    EXPECT_EQ(client.ListDir("/d").entries, (std::vector<Entry>{{"sub", true}, {"a.txt", false}, {"with:1", false}}));
    const Listing empty = client.ListDir("/empty");
    EXPECT_TRUE(empty.Succeeded() && empty.entries.empty());
    const Listing failed = client.ListDir("/file");
    EXPECT_TRUE(!failed.failure && !failed.Succeeded() && failed.errCode == ENOTDIR);
    EXPECT_EQ(client.ExistedPath("/data/a/b/c").path, "/data/a");
}

TEST(ClientReply, OnlyTheResultDecides) {
    FakeDaemon daemon({{ReplyBytes(0, EXDEV)},
                       {ReplyBytes(-2, 0)},
                       {ReplyBytes(-1, ENOTDIR)},
                       {ReplyBytes(44, EACCES)},
                       {ReplyBytes(-1, EACCES)}});
    Client client(OptionsFor(daemon.socketPath));
    EXPECT_TRUE(client.MoveAll("/a", "/b").Succeeded());
    EXPECT_TRUE(client.MoveAll("/a", "/b").SourceMissing());
    const YesNo unknown = client.IsExist("/file/x");
    EXPECT_TRUE(!unknown.failure && !unknown.IsYes() && !unknown.IsNo());
    const Size used = client.UsedSpace("/a");
    EXPECT_TRUE(used.kilobytes == 44 && !used.isWhole) << "the used space is only whole without an error number";
    EXPECT_FALSE(client.MaxSize("/a").isWhole);
}

TEST(ClientReply, WhatIsNoReplyClosesTheConnectionAndTheNextRequestConnectsAnew) {
    const auto with = [](std::string bytes, std::size_t offset, std::int32_t value) {
        std::memcpy(bytes.data() + offset, &value, sizeof(value));
        return bytes;
    };
    const std::string one = ReplyBytes(0, 0, {"a:0"});
    const struct {
        const char* name;
        Answer answer;
        ClientErrc error;
    } rows[] = {
        {"negative count", {with(one, 8, -1)}, ClientErrc::MalformedReply},
        {"absurd count", {with(one, 8, INT32_MAX)}, ClientErrc::MalformedReply},
        {"count differs", {with(one, 12, 2)}, ClientErrc::MalformedReply},
        {"index not 1", {with(one, 16, 0)}, ClientErrc::MalformedReply},
        {"text without end", {one.substr(0, 20) + std::string(4094, 'a') + ":0"}, ClientErrc::MalformedReply},
        {"entry without type", {ReplyBytes(0, 0, {"a:0/b"})}, ClientErrc::MalformedReply},
        {"entry without name", {ReplyBytes(0, 0, {":1"})}, ClientErrc::MalformedReply},
        {"empty package", {ReplyBytes(0, 0, {""})}, ClientErrc::MalformedReply},
        {"hang-up", {"", true}, ClientErrc::ConnectionClosed},
        {"hang-up in the result", {one.substr(0, 5), true}, ClientErrc::ConnectionClosed},
        {"hang-up in a package", {one.substr(0, 99), true}, ClientErrc::ConnectionClosed},
        {"silence", {""}, ClientErrc::TimedOut},
        {"silence in a package", {one.substr(0, 99)}, ClientErrc::TimedOut},
    };
    for (const auto& row : rows) {
        FakeDaemon daemon({row.answer, {ReplyBytes(0, 0, {"b:1"})}});
        Client client(OptionsFor(daemon.socketPath, milliseconds(row.error == ClientErrc::TimedOut ? 50 : 5000)));
        const Listing bad = client.ListDir("/d");
        EXPECT_EQ(bad.failure.code, row.error) << row.name << ": " << bad.failure.Message();
        EXPECT_TRUE(bad.entries.empty()) << row.name;
        EXPECT_EQ(client.ListDir("/d").entries, (std::vector<Entry>{{"b", true}})) << row.name;
        EXPECT_EQ(daemon.connections, 2) << row.name << ": a late answer could be taken for the next one";
    }
}

TEST(ClientReply, StringsThatNobodyAskedForAreNoReply) {
    FakeDaemon daemon({{ReplyBytes(1, 0, {"x"})}, {ReplyBytes(0, 0, {"/a", "/b"})}, {ReplyBytes(0, 0)}});
    Client client(OptionsFor(daemon.socketPath));
    EXPECT_EQ(client.IsExist("/a").failure.code, ClientErrc::MalformedReply);
    EXPECT_EQ(client.ExistedPath("/a").failure.code, ClientErrc::MalformedReply);
    EXPECT_EQ(client.ExistedPath("/a").failure.code, ClientErrc::MalformedReply) << "no path";
}

TEST(ClientConnection, OneThatTheDaemonClosedWhileIdleIsMadeAgain) {
    FakeDaemon daemon({{ReplyBytes(1, 0), true}, {ReplyBytes(1, 0)}, {ReplyBytes(1, 0) + "left over"}});
    Client client(OptionsFor(daemon.socketPath));
    EXPECT_TRUE(client.IsExist("/1").IsYes());
    daemon.WaitForHangUp();
    EXPECT_TRUE(client.IsExist("/2").IsYes());
    EXPECT_TRUE(client.IsExist("/3").IsYes());
    EXPECT_TRUE(client.MkDir("/4").Succeeded()) << "bytes left over from one reply began the next";
    EXPECT_EQ(daemon.Requests().size(), 4U);
}

TEST(ClientConnection, FailsInTimeAndWithAReason) {
    const TemporaryDirectory directory;
    Client none(OptionsFor(directory.path + "/none"));
    EXPECT_EQ(none.Connect().code, std::errc::no_such_file_or_directory);
    EXPECT_EQ(Client(OptionsFor(std::string(108, 'p'))).Connect().code, std::errc::filename_too_long);

    // Room for one; nobody accepts.
    FakeDaemon deaf({}, 0);
    Client first(OptionsFor(deaf.socketPath));
    EXPECT_FALSE(first.Connect());
    Client second(OptionsFor(deaf.socketPath));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(second.IsExist("/a").failure.code, ClientErrc::TimedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane
