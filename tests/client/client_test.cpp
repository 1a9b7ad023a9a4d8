// The client library against a fake daemon whose answers the test chooses. The tests of orvanectl check what the
// commands of the C++ interface send and how they read the answers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "c_client.h"
#include "fake_daemon.h"
#include "file_migrate_client.h"
#include "file_migrate_client.hpp"

/// How many allocations of this thread succeed before one fails; if negative, none fails.
static thread_local int g_allocationsLeft = -1;
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return g_allocationsLeft >= 0 && g_allocationsLeft-- == 0 ? nullptr : std::malloc(size);
}
void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
// If the two were inlined, g++ would warn that they free what they did not allocate.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using namespace FileMigrateClient;

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
    EXPECT_EQ(Complaint(client.ChOwn("/a", "4294967295", "0")), "user is larger than 4294967294");
    EXPECT_EQ(Complaint(client.PrepareDir("/a", "0", std::string(35, '9'), "7")), "group is larger than 4294967294");
    // The longest text of each field, and ".." without a slash after it, are not refused.
    EXPECT_TRUE(client.CopyComb(s, "/a/..", u, g, p).Succeeded());
    EXPECT_TRUE(client.ChOwn("/a", "4294967294", "4294967295x").Succeeded());
    EXPECT_EQ(daemon.Requests(), (std::vector{"18|" + s + "|/a/..|" + u + "|" + g + "|" + p + "|0",
                                              std::string("13|/a||4294967294|4294967295x||1")}));
}

/// The error of a request that is answered with these bytes. The next request must get its own answer.
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

TEST(ClientReply, ErrorsCompareEqualToTheStandardOnes) {
    EXPECT_EQ(make_error_code(ClientErrc::InvalidRequest), std::errc::invalid_argument);
    EXPECT_EQ(make_error_code(ClientErrc::ConnectionClosed), std::errc::connection_reset);
    EXPECT_EQ(make_error_code(ClientErrc::TimedOut), std::errc::timed_out);
    EXPECT_EQ(make_error_code(ClientErrc::MalformedReply), std::errc::bad_message);
    EXPECT_EQ(make_error_code(ClientErrc::UntrustedPeer), std::errc::permission_denied);
    EXPECT_EQ(make_error_code(ClientErrc::Cancelled), std::errc::operation_canceled);
    EXPECT_EQ(make_error_code(ClientErrc::Busy), std::errc::operation_in_progress);
}

TEST(ClientReply, AListingInPiecesNeedsNoMemoryForItsNames) {
    std::string names = "0:0";
    for (int number = 1; names.size() < 4000; ++number) {
        names += "/a name that would not fit into a short string " + std::to_string(number) + ":0";
    }
    FakeDaemon daemon({{ReplyBytes(0, 0, Strings(40, names))}, {}});
    Client client(OptionsFor(daemon));
    std::size_t count = 0;
    g_allocationsLeft = 10;
    const Outcome outcome = client.ListDir("/d", [&count](std::string_view /*name*/, bool /*isDirectory*/) {
        ++count;
        return true;
    });
    g_allocationsLeft = -1;
    EXPECT_TRUE(outcome.Succeeded()) << outcome.failure.Message();
    EXPECT_EQ(count, 40 * static_cast<std::size_t>(std::count(names.begin(), names.end(), ':')));
}

TEST(ClientReply, AMissingOwnerIsToldFromAMissingPath) {
    EXPECT_EQ(UnknownOwner("nobody", "no such group"), OwnerField::Group);
    EXPECT_EQ(UnknownOwner("no such user", "no such group"), OwnerField::User);
    EXPECT_EQ(UnknownOwner("root", "4000000000"), OwnerField::None);
    EXPECT_EQ(file_migrate_unknown_owner(nullptr, "no such group"), FILE_MIGRATE_GROUP);
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

TEST(ClientConnection, OneThatIsFoundClosedBySendingIsMadeAgain) {
    FakeDaemon daemon({{.thenStopReading = true}, {.thenStopReading = true}});
    Client client(OptionsFor(daemon));
    EXPECT_TRUE(client.MkDir("/1").Succeeded() && client.MkDir("/2").Succeeded());
    EXPECT_EQ(daemon.Requests(), (Strings{"12|/1|||||1", "12|/2|||||1"}));
}

TEST(ClientConnection, NothingIsSentToADaemonOfAnotherUser) {
    FakeDaemon daemon;
    daemon.ListenAs(65534);
    ClientOptions options = OptionsFor(daemon);
    EXPECT_EQ(Client(options).IsExist("/a").failure.code, ClientErrc::UntrustedPeer);
    EXPECT_TRUE(daemon.Requests().empty());
    options.daemonUser = 65534;
    EXPECT_TRUE(Client(options).MkDir("/a").Succeeded());
}

TEST(CInterface, EveryCommandHasItsNumberAndFields) {
    FakeDaemon daemon;
    const CClient client(daemon.socketPath);
    file_migrate_client* const c = client.c;
    const auto one = FILE_MIGRATE_PATH_ONLY, all = FILE_MIGRATE_RECURSIVE;
    const file_migrate_reply replies[] = {
        file_migrate_is_exist(c, "/a"),
        file_migrate_is_dir(c, "/a"),
        file_migrate_list_dir(c, "/a").reply,
        file_migrate_prepare_dir(c, "/a", "u", "g", "7", all),
        file_migrate_move_sub(c, "/a", "/b"),
        file_migrate_move_all(c, "/a", "/b"),
        file_migrate_copy_sub(c, "/a", "/b"),
        file_migrate_copy_all(c, "/a", "/b"),
        file_migrate_remove(c, "/a"),
        file_migrate_restorecon(c, "/a", one),
        file_migrate_restorecon_from_parent(c, "/a"),
        file_migrate_try_remove(c, "/a"),
        file_migrate_mkdir(c, "/a", all),
        file_migrate_chown(c, "/a", "u", "g", one),
        file_migrate_chmod(c, "/a", "7", one),
        file_migrate_existed_path(c, "/a").reply,
        file_migrate_used_space(c, "/a"),
        file_migrate_max_size(c, "/a"),
        file_migrate_copy_comb(c, "/a", "/b", "u", "g", "7"),
    };
    static_assert(std::size(replies) == COMMAND_COUNT);
    for (const file_migrate_reply& reply : replies) {
        const bool isPath = &reply == &replies[15];  // this answer has no path
        EXPECT_EQ(reply.status, isPath ? FILE_MIGRATE_MALFORMED_REPLY : FILE_MIGRATE_ANSWERED) << reply.message;
    }
    EXPECT_EQ(daemon.Requests(), (Strings{"0|/a|||||0", "1|/a|||||0", "2|/a|||||0", "3|/a||u|g|7|2", "4|/a|/b||||0",
                                          "5|/a|/b||||0", "6|/a|/b||||0", "7|/a|/b||||0", "8|/a|||||0", "9|/a|||||1",
                                          "10|/a|||||0", "11|/a|||||0", "12|/a|||||2", "13|/a||u|g||1", "14|/a||||7|1",
                                          "15|/a|||||0", "16|/a|||||0", "17|/a|||||0", "18|/a|/b|u|g|7|0"}));
}

void ExpectUnanswered(const file_migrate_reply& reply, file_migrate_status status, const std::string& message) {
    EXPECT_TRUE(reply.status == status && reply.result == -1) << reply.status << " " << message;
    EXPECT_NE(std::string(reply.message).find(message), std::string::npos) << reply.message;
}

TEST(CInterface, WithoutAnAnswerStatusAndMessageTellWhy) {
    FakeDaemon daemon({{ReplyBytes(0, 0, {"a"})}, {"", true}, {""}});
    const std::string tooLong(108, 'n');
    const CClient client(daemon.socketPath, 200, 200), nowhere(tooLong);
    ExpectUnanswered(file_migrate_is_dir(client.c, "/"), FILE_MIGRATE_MALFORMED_REPLY, "1 packages announced");
    ExpectUnanswered(file_migrate_is_dir(client.c, "/"), FILE_MIGRATE_CONNECTION_CLOSED, "closed");
    ExpectUnanswered(file_migrate_is_dir(client.c, "/"), FILE_MIGRATE_TIMED_OUT, "the request was sent");
    ExpectUnanswered(file_migrate_is_dir(client.c, "a/../b"), FILE_MIGRATE_INVALID_REQUEST, "../");
    ExpectUnanswered(file_migrate_is_dir(nullptr, "/"), FILE_MIGRATE_NULL_ARGUMENT, "client is NULL");
    ExpectUnanswered(file_migrate_list_dir(client.c, nullptr).reply, FILE_MIGRATE_NULL_ARGUMENT, "src is NULL");
    EXPECT_EQ(daemon.Requests().size(), 3U);
    ExpectUnanswered(file_migrate_connect(nowhere.c), FILE_MIGRATE_SYSTEM_ERROR, "connecting to nnn");
    EXPECT_EQ(file_migrate_connect(nowhere.c).system_error, ENAMETOOLONG);
}

TEST(CInterface, WantOfMemoryAnywhereIsAReply) {
    FakeDaemon daemon(std::vector<Answer>(50, {ReplyBytes(0, 0, {"sub:1", "a:0"})}));
    const CClient client(daemon.socketPath);
    file_migrate_listing listing{};
    for (int allowed = 0; listing.count == 0 && allowed < 50; ++allowed) {
        g_allocationsLeft = allowed;
        listing = file_migrate_list_dir(client.c, "/");
        g_allocationsLeft = -1;
        EXPECT_EQ(listing.reply.status, listing.count == 0 ? FILE_MIGRATE_NO_MEMORY : FILE_MIGRATE_ANSWERED);
    }
    ASSERT_EQ(listing.count, 2U);
    EXPECT_TRUE(listing.entries[1].name == std::string("a") && listing.entries[0].is_directory);
    file_migrate_release(listing.entries);
}

/// What has arrived is counted without what was there before, and never as more than the source has.
TEST(CInterface, GrowthIsMeasuredAtTheDestination) {
    const auto names = [](const std::vector<std::string>& texts) { return Answer{ReplyBytes(0, 0, texts)}; };
    const auto used = [](int kilobytes, int error = 0) { return Answer{ReplyBytes(kilobytes, error)}; };
    const Answer a = names({"a:1"}), both = names({"a:1", "b:1"});
    FakeDaemon absent({a, a, used(404), a, both, used(44), used(900), used(1, EACCES)});
    FakeDaemon filled({both, both, used(404), used(500), used(544)});
    const CClient client(absent.socketPath), other(filled.socketPath);
    std::vector<std::int64_t> totals, sizes;
    for (const CClient* each : {&client, &other}) {
        file_migrate_growth* const growth = file_migrate_growth_new(&each->options, FILE_MIGRATE_COPY_COMB, "/a", "/b");
        totals.push_back(file_migrate_growth_total(growth));
        for (int i = 0; i < (each == &client ? 4 : 1); ++i) {
            sizes.push_back(file_migrate_growth_now(growth));
        }
        file_migrate_growth_free(growth);
    }
    EXPECT_EQ(totals, (std::vector<std::int64_t>{404, 404}));
    EXPECT_EQ(sizes, (std::vector<std::int64_t>{0, 44, 404, -1, 44}));
    EXPECT_EQ(file_migrate_growth_new(&client.options, FILE_MIGRATE_REMOVE, "/a", "/b"), nullptr);
    EXPECT_EQ(absent.Requests().size(), 8U);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
