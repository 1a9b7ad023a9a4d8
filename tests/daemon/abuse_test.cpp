// Hostile and careless clients against the real daemon. It must answer valid requests, record invalid ones, keep
// serving other clients, and use no more descriptors or memory over time. Set FILE_MIGRATE_SEED to repeat a run of the
// random requests.
#include <sys/socket.h>

#include <array>
#include <future>
#include <iostream>
#include <random>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using std::chrono::seconds, std::this_thread::sleep_for;
using Random = std::mt19937;
const Request kIsThere{Command::IsExist, "/data"};  // the answer is 1

/// A random request. Sources and destinations lie in separate trees so that no tree is copied into itself. There are
/// only a few of them so that requests collide. No name contains a dot, so no path leads out of the trees.
Request AnyRequest(Random& random, const ScratchTree& tree, const ScratchTree& second) {
    static const Strings names{"", "/a", "/a/b", "/a/b/c", "/f", "/a/f", "/\x01\xff%s;\n"};
    static const Strings owners{"0", "1000", "root", "", "no such", std::string(35, 'u')};
    static const Strings modes{"0755", "755", "0640", "4711", "", "0", "9", std::string(15, '7')};
    const auto any = [&](const auto& list) { return list[random() % list.size()]; };
    const std::string src = tree.Path("s") + any(names);
    const std::string dst = (random() % 4 == 0 ? second : tree).Path("d") + any(names);
    return {Command(random() % COMMAND_COUNT), src, dst, any(owners), any(owners), any(modes), int(random() % 3)};
}

/// Whether the record is of a request that did not arrive whole.
bool IsRefusal(const std::string& record) {
    return record.starts_with("type:RECVBUFSIZE,");
}

struct AbuseTest : DaemonTest {
    /// The reply has 125 packages, which is more than the socket buffers hold.
    Request LongListing() {
        EXPECT_TRUE(Shell("mkdir list; cd list; seq -f $(printf %0240d)%g 1000 2999 | xargs touch"));
        return {Command::ListDir, tree->Path("list")};
    }

    void ExpectNoGrowthSince(const Usage& before) {
        const Usage now = daemon->Used();
        // Each worker's heap grows once, to the size of its largest reply.
        EXPECT_TRUE(IS_SANITIZED || now.residentKb < before.residentKb + 4096)
            << before.residentKb << " KB, then " << now.residentKb;
        EXPECT_TRUE(Becomes([&] { return daemon->Used().descriptors <= before.descriptors; }));
    }

    std::array<char, sizeof(FileMigrateStrPkg)> unread{};  ///< reply data that the tests ignore
};

TEST_F(AbuseTest, AnswersOrRecordsRandomRequests) {
    const char* const given = std::getenv("FILE_MIGRATE_SEED");
    const std::string seed = given != nullptr ? given : std::to_string(std::random_device()());
    std::cout << "FILE_MIGRATE_SEED=" << seed << '\n';
    Random random(static_cast<Random::result_type>(std::stoul(seed)));
    Start();
    Clients clients(100);
    Usage before{};
    for (int round = 0; round < 60; ++round) {
        ClearRecords();
        std::vector<RawClient*> answered, refused;
        for (RawClient& client : clients) {
            const FileMigrateRcvMsg message = AnyRequest(random, *tree, *second).Wire();
            const bool isWhole = random() % 3 != 0;
            (isWhole ? answered : refused).push_back(&client);
            const std::size_t size = isWhole ? sizeof(message) : random() % (sizeof(message) - 1) + 1;
            client.Send({reinterpret_cast<const char*>(&message), size});
        }
        ASSERT_TRUE(std::ranges::all_of(answered, [](RawClient* client) { return client->Receive().has_value(); }));
        ASSERT_TRUE(Becomes([&] { return std::ranges::count_if(Records(), IsRefusal) == std::ssize(refused); }))
            << refused.size();
        ASSERT_TRUE(
            std::ranges::none_of(refused, [](RawClient* client) { return client->Receive(Deadline{0}).has_value(); }));
        before = round == 20 ? daemon->Used() : before;
    }
    ExpectNoGrowthSince(before);
}

TEST_F(AbuseTest, SurvivesClientsThatSendOrReadPartially) {
    const Request listing = LongListing();
    const FileMigrateRcvMsg message = listing.Wire();
    const std::string_view bytes(reinterpret_cast<const char*>(&message), sizeof(message));
    // How many bytes the client sends, the size of each piece, how many bytes it reads, and how it then calls
    // shutdown(). 9 is not a valid argument, so that call does nothing.
    const std::array<std::size_t, 4> rows[] = {
        {0, 1, 0, 9},       {4000, 4000, 0, 9},    {8288, 4144, 0, 9},          {8288, 1, 0, 9},
        {8288, 8288, 0, 9}, {8288, 8288, 2000, 9}, {8288, 8288, 0, SHUT_WR},    {8288, 8288, 0, SHUT_RD},
        {0, 1, 0, SHUT_WR}, {0, 1, 0, SHUT_RDWR},  {8288, 8288, 2000, SHUT_RD}, {4000, 4000, 0, SHUT_RD},
    };
    Start();
    RawClient polite;
    Usage before{};
    for (int round = 0; round < 5; ++round) {
        for (const auto& [sent, piece, read, how] : rows) {
            RawClient client;
            for (std::size_t at = 0; at < sent; at += piece) {
                client.Send(bytes.substr(at, piece));
            }
            (void)!(read > 0 && recv(client.Fd(), unread.data(), read, MSG_WAITALL));
            shutdown(client.Fd(), static_cast<int>(how));
            EXPECT_EQ(polite.Call(kIsThere).result, 1);
        }
        before = round == 2 ? daemon->Used() : before;
    }
    ExpectNoGrowthSince(before);
    polite.Send(listing);
    sleep_for(Deadline{500});
    EXPECT_EQ(polite.Receive().value().Strings().size(), 2000U * 247 - 1) << "a late reader gets the whole reply";
}

TEST_F(AbuseTest, ServesAThousandClientsWithSixtyFourDescriptors) {
    Start({{}, {"prlimit", "--nofile=64:64"}});
    RawClient served;
    std::promise<void> start;
    const auto call = [begin = start.get_future().share()] {
        RawClient client;
        begin.wait();
        return client.Call(kIsThere).result;
    };
    std::vector<std::future<int>> crowd;
    std::generate_n(std::back_inserter(crowd), 1000, [&] { return std::async(std::launch::async, call); });
    ASSERT_TRUE(Await("W .EpollAccept. 32 connections, no more are accepted"));
    const Usage before = daemon->Used();
    const std::size_t logged = daemon->Log().size();
    sleep_for(seconds(1));
    EXPECT_LT(daemon->Used().cpuSeconds - before.cpuSeconds, 0.25) << "the event loop spins";
    EXPECT_LT(daemon->Log().size() - logged, 20 * 200U) << "the daemon floods its log";
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(served.Call(kIsThere).result, 1);
    }
    tree->Dir("1/2/3/4/5/6/7/8/9/10/11/12/13/14/15/16/17/18/19/20");
    EXPECT_EQ(served.Call({Command::UsedSpace, tree->Path()}).errCode, 0)
        << "connections leave no descriptors to walks";
    start.set_value();
    EXPECT_TRUE(std::all_of(crowd.begin(), crowd.end(), [](std::future<int>& one) { return one.get() == 1; }));
}

/// Four clients ask again and again and read nothing. The fifth waits until one send has timed out, after three
/// seconds.
TEST_F(AbuseTest, ServesAFifthClientWhileFourDoNotRead) {
    const Request listing = LongListing();
    Start();
    Clients stuck(4);
    for (std::size_t asked = 1; asked <= 10; ++asked) {
        SendAll(stuck, listing);
        ASSERT_TRUE(Await("AddThreadTask", 4 * asked));
    }
    RawClient fifth;
    fifth.Send(kIsThere);
    EXPECT_TRUE(fifth.Receive(Deadline{15000}));
    for (RawClient& client : stuck) {
        const auto isAtEnd = [&] { return recv(client.Fd(), unread.data(), unread.size(), MSG_DONTWAIT) == 0; };
        EXPECT_TRUE(Becomes(isAtEnd)) << "the client does not see that packages are missing";
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
