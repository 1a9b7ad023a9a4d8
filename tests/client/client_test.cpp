// The client library against a daemon that answers with what the test wants. What its commands send and how their
// answers are read is tried through the tool.
#include <gtest/gtest.h>

#include "fake_daemon.h"
#include "file_migrate_client.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

ClientOptions OptionsFor(const FakeDaemon& daemon, int replyLimit = 5000) {
    using std::chrono::milliseconds;
    return {daemon.socketPath, /*connectLimit=*/milliseconds(200), milliseconds(replyLimit)};
}

/// Why a request was refused.
std::string Complaint(const Reply& reply) {
    return reply.failure.code == ClientErrc::InvalidRequest ? reply.failure.detail : reply.failure.Message();
}

TEST(ClientRequest, WhatTheDaemonWouldRefuseIsNotSent) {
    const std::string s(4095, 's'), u(35, 'u'), g(35, 'g'), p(15, '7');
    FakeDaemon daemon;
    Client client(OptionsFor(daemon));
    EXPECT_EQ(Complaint(client.IsExist(s + "s")), "src is longer than 4095 bytes");
    EXPECT_EQ(Complaint(client.Remove(std::string("/a\0b", 4))), "src holds a NUL byte");
    EXPECT_EQ(Complaint(client.IsExist("/a../")), "src contains \"../\"");
    EXPECT_EQ(Complaint(client.ChOwn("/a", u + "u", "g")), "user is longer than 35 bytes");
    EXPECT_EQ(Complaint(client.ChMod("/a", p + "7")), "perm is longer than 15 bytes");
    EXPECT_EQ(Complaint(client.ChMod("/a", "-1")), "perm contains \"-\"");
    EXPECT_EQ(Complaint(client.MkDir("/a", Recursion{3})), "recurseOpt is 3, not 0, 1 or 2");
    EXPECT_EQ(Complaint(client.MkDir("/a", Recursion{-1})), "recurseOpt is -1, not 0, 1 or 2");
    // The longest of everything, and two dots without a slash behind them, are not refused.
    EXPECT_TRUE(client.CopyComb(s, "/a/..", u, g, p).Succeeded());
    EXPECT_EQ(daemon.Requests(), std::vector{"18|" + s + "|/a/..|" + u + "|" + g + "|" + p + "|0"});
}

/// The error of a request that is answered with these bytes. The one after it must get its own answer.
std::error_code ErrorOf(const std::string& bytes, bool thenHangUp = false, int replyLimit = 5000) {
    FakeDaemon daemon({{bytes, thenHangUp}, {ReplyBytes(0, 0, {"b:1"})}});
    Client client(OptionsFor(daemon, replyLimit));
    const Listing bad = client.ListDir("/d");
    EXPECT_TRUE(bad.entries.empty()) << bad.failure.Message();
    EXPECT_EQ(client.ListDir("/d").entries, (std::vector<Entry>{{"b", true}})) << bad.failure.Message();
    EXPECT_EQ(daemon.ended, 1) << "a late answer could be taken for the next one: " << bad.failure.Message();
    return bad.failure.code;
}

TEST(ClientReply, WhatIsNoReplyClosesTheConnectionAndTheNextRequestConnectsAnew) {
    const std::string one = ReplyBytes(0, 0, {"a:0"});
    const auto with = [&one](std::size_t at, std::size_t n, char c) { return std::string(one).replace(at, n, n, c); };
    EXPECT_EQ(ErrorOf(with(8, 4, '\xff')), ClientErrc::MalformedReply) << "negative count";
    EXPECT_EQ(ErrorOf(with(8, 8, '\x7f')), ClientErrc::MalformedReply) << "absurd count";
    EXPECT_EQ(ErrorOf(with(12, 1, 2)), ClientErrc::MalformedReply) << "count differs";
    EXPECT_EQ(ErrorOf(with(16, 1, 2)), ClientErrc::MalformedReply) << "index not 1";
    EXPECT_EQ(ErrorOf(one.substr(0, 20) + std::string(4094, 'a') + ":0"), ClientErrc::MalformedReply) << "no NUL";
    EXPECT_EQ(ErrorOf(ReplyBytes(0, 0, {"a:0/b"})), ClientErrc::MalformedReply) << "entry without type";
    EXPECT_EQ(ErrorOf(ReplyBytes(0, 0, {":1"})), ClientErrc::MalformedReply) << "entry without name";
    EXPECT_EQ(ErrorOf(one.substr(0, 5), true), ClientErrc::ConnectionClosed) << "in the result";
    EXPECT_EQ(ErrorOf(one.substr(0, 99), true), ClientErrc::ConnectionClosed) << "in a package";
    EXPECT_EQ(ErrorOf(one.substr(0, 99), false, 50), ClientErrc::TimedOut) << "in a package";
}

TEST(ClientReply, AFigureThatCouldNotBeToldIsNotWhole) {
    FakeDaemon daemon({{ReplyBytes(-1, 0)}});
    EXPECT_FALSE(Client(OptionsFor(daemon)).MaxSize("/a").isWhole);
}

TEST(ClientConnection, OneThatTheDaemonClosedWhileIdleIsMadeAgain) {
    FakeDaemon daemon({{ReplyBytes(1, 0), true}, {ReplyBytes(1, 0)}, {ReplyBytes(1, 0) + "left over"}});
    Client client(OptionsFor(daemon));
    EXPECT_TRUE(client.IsExist("/1").IsYes());
    daemon.ended.wait(0);
    EXPECT_TRUE(client.IsExist("/2").IsYes());
    EXPECT_TRUE(client.IsExist("/3").IsYes());
    EXPECT_TRUE(client.MkDir("/4").Succeeded()) << "bytes left over from one reply began the next";
    EXPECT_EQ(daemon.Requests().size(), 4U);
}

TEST(ClientConnection, FailsInTimeAndWithAReason) {
    EXPECT_EQ(Client({.socketPath = std::string(108, 'p')}).Connect().code, std::errc::filename_too_long);
    FakeDaemon deaf({}, 0);  // room for one; nobody accepts
    Client first(OptionsFor(deaf)), second(OptionsFor(deaf));
    EXPECT_FALSE(first.Connect());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(second.IsExist("/a").failure.code, ClientErrc::TimedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
