// How the client waits: limits, signals, and requests that are begun and finished in two calls.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <limits>

#include "c_client.h"
#include "fake_daemon.h"
#include "file_migrate_client.h"
#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using namespace FileMigrateClient;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto FOREVER = milliseconds(std::numeric_limits<std::int64_t>::max());

/// "status result system_error message", or without an answer only what is not -1 or empty in it.
std::string Text(const file_migrate_reply& reply) {
    return std::to_string(reply.status) + " " + std::to_string(reply.result) + " " +
           std::to_string(reply.system_error) + " " + reply.message;
}

TEST(ClientLimit, EachCoversItsOwnWait) {
    // The connect limit, the reply limit and the delay of the answer.
    const std::tuple<const char*, milliseconds, milliseconds, milliseconds, std::error_code> rows[] = {
        {"reply within its limit", 20ms, 20s, 100ms, {}},
        {"reply too late", 20s, 20ms, 100ms, ClientErrc::TimedOut},
        {"no limits", 0ms, 0ms, 20ms, {}},
        {"the longest limits", FOREVER, FOREVER, 20ms, {}},
    };
    for (const auto& [name, connectLimit, replyLimit, delay, error] : rows) {
        FakeDaemon daemon({{.delay = delay}});
        Client client({daemon.socketPath, connectLimit, replyLimit});
        EXPECT_EQ(client.MkDir("/a").failure.code, error) << name;
    }
}

/// Fills a connection that nobody reads.
void Fill(int fd) {
    const std::string junk(4096, 'j');
    while (send(fd, junk.data(), junk.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    }
}

TEST(ClientLimit, ADaemonThatReadsNothingHoldsUpNoRequestForever) {
    FakeDaemon deaf({}, 0);
    const CClient client(deaf.socketPath, 20'000, 100);
    ASSERT_EQ(file_migrate_connect(client.c).result, 0);
    Fill(file_migrate_fd(client.c));
    const file_migrate_request request = FILE_MIGRATE_REQUEST(FILE_MIGRATE_IS_DIR, "/a");
    EXPECT_EQ(file_migrate_begin(client.c, &request).result, 0);
    EXPECT_EQ(file_migrate_process(client.c), 0);
    EXPECT_EQ(file_migrate_events(client.c), POLLOUT);
    EXPECT_EQ(Text(file_migrate_finish(client.c)), "3 -1 0 sending the request: timed out");
    EXPECT_EQ(file_migrate_fd(client.c), -1) << "half a request may be in the connection";
}

TEST(ClientLimit, AFullBacklogIsTriedAgainUntilTheConnectLimit) {
    FakeDaemon deaf({}, 0);  // a backlog of one
    const CClient first(deaf.socketPath, 100, 20'000), second(deaf.socketPath, 100, 20'000);
    ASSERT_EQ(file_migrate_connect(first.c).result, 0);
    const file_migrate_request request = FILE_MIGRATE_REQUEST(FILE_MIGRATE_IS_DIR, "/a");
    EXPECT_EQ(file_migrate_begin(second.c, &request).result, 0);
    EXPECT_EQ(file_migrate_timeout(second.c), 0) << "the first try need not wait";
    EXPECT_EQ(file_migrate_process(second.c), 0);
    EXPECT_EQ(file_migrate_fd(second.c), -1);
    EXPECT_GT(file_migrate_timeout(second.c), 0);
    const std::string reply = Text(file_migrate_finish(second.c));
    EXPECT_EQ(reply, "3 -1 0 connecting to " + deaf.socketPath + ": timed out");
}

TEST(ClientConnection, ADaemonThatHangsUpWithoutReadingHasClosedTheConnection) {
    FakeDaemon daemon({{.bytes = "", .thenHangUp = true, .isUnread = true}});  // recv() then gives ECONNRESET
    const Failure failure = Client({daemon.socketPath}).MkDir("/a").failure;
    EXPECT_EQ(failure.code, ClientErrc::ConnectionClosed) << failure.Message();
}

/// Sends the process a signal every 10 ms. Its handler makes system calls fail with EINTR.
class Signals {
public:
    Signals() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        ualarm(10'000, 10'000);
    }
    ~Signals() { ualarm(0, 0); }
};

TEST(ClientSignal, InterruptsAWaitOnlyIfTheCallerWantsThat) {
    // The fake daemon's own waits must not be interrupted.
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    FakeDaemon daemon(std::vector<Answer>(3, {.delay = milliseconds(100)}));
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    const Signals signals;

    Client patient({daemon.socketPath});
    EXPECT_TRUE(patient.MkDir("/a").Succeeded());
    patient.SetInterruptible(true);
    EXPECT_EQ(patient.MkDir("/b").failure.code, std::errc::interrupted);

    const CClient client(daemon.socketPath);
    file_migrate_set_interruptible(client.c, 1);
    const file_migrate_request request = FILE_MIGRATE_REQUEST(FILE_MIGRATE_MKDIR, "/c");
    EXPECT_EQ(file_migrate_begin(client.c, &request).result, 0);
    int interruptions = -1;
    file_migrate_reply reply;
    do {
        reply = file_migrate_finish(client.c);
        ++interruptions;
    } while (reply.system_error == EINTR);
    EXPECT_EQ(Text(reply), "0 0 0 ");
    EXPECT_GT(interruptions, 0);
    EXPECT_EQ(daemon.Requests(), (Strings{"12|/a|||||1", "12|/b|||||1", "12|/c|||||1"}));
}

/// Appends "name:is_directory " to the string.
int Append(void* names, const char* name, int isDirectory) {
    static_cast<std::string*>(names)->append(name).append(isDirectory != 0 ? ":1 " : ":0 ");
    return 0;
}

TEST(CPolling, ARequestIsBegunAndFinishedWithoutWaitingInside) {
    FakeDaemon daemon({{.bytes = ReplyBytes(0, 0, {"sub:1/a:b:0", "c:0"}), .delay = milliseconds(50)},
                       {ReplyBytes(0, 0, {"/data"})}});
    const CClient client(daemon.socketPath);
    std::string names;
    file_migrate_request request = FILE_MIGRATE_REQUEST(FILE_MIGRATE_LIST_DIR, "/d");
    request.taker = Append;
    request.context = &names;
    ASSERT_EQ(file_migrate_begin(client.c, &request).result, 0);
    EXPECT_EQ(file_migrate_begin(client.c, &request).status, FILE_MIGRATE_BUSY);
    EXPECT_EQ(file_migrate_is_dir(client.c, "/").status, FILE_MIGRATE_BUSY);
    EXPECT_EQ(file_migrate_connect(client.c).status, FILE_MIGRATE_BUSY);
    int rounds = 0;
    for (; file_migrate_process(client.c) == 0; ++rounds) {
        pollfd entry{file_migrate_fd(client.c), file_migrate_events(client.c), 0};
        ASSERT_EQ(poll(&entry, 1, file_migrate_timeout(client.c)), 1);
    }
    EXPECT_TRUE(rounds > 0 && rounds < 10) << rounds << ": it did not wait, or for the wrong thing";
    EXPECT_EQ(Text(file_migrate_finish(client.c)), "0 0 0 ");
    EXPECT_EQ(names, "sub:1 a:b:0 c:0 ");

    EXPECT_EQ(Text(file_migrate_finish(client.c)), "5 -1 22 no request was begun: Invalid argument");
    request.command = FILE_MIGRATE_EXISTED_PATH;
    names.clear();
    ASSERT_EQ(file_migrate_begin(client.c, &request).result, 0);
    EXPECT_EQ(Text(file_migrate_finish(client.c)), "0 0 0 ");
    EXPECT_EQ(names, "/data:0 ");
}

TEST(CPolling, WhatIsNoRequestIsNotBegun) {
    FakeDaemon daemon;
    const CClient client(daemon.socketPath);
    const file_migrate_request good = FILE_MIGRATE_REQUEST(FILE_MIGRATE_MOVE_ALL, "/a");
    file_migrate_request newer = good, unknown = good;
    ++newer.size;
    unknown.command = static_cast<file_migrate_command>(19);
    EXPECT_EQ(Text(file_migrate_begin(client.c, &good)), "6 -1 0 dst is NULL");
    EXPECT_EQ(Text(file_migrate_begin(client.c, nullptr)), "6 -1 0 request is NULL");
    EXPECT_EQ(Text(file_migrate_begin(client.c, &newer)), "1 -1 0 file_migrate_request has an unknown size");
    EXPECT_EQ(Text(file_migrate_begin(client.c, &unknown)), "1 -1 0 there is no such command");
    EXPECT_EQ(file_migrate_process(client.c), 1);
    EXPECT_TRUE(daemon.Requests().empty());
    EXPECT_EQ(file_migrate_fd(nullptr) + file_migrate_events(nullptr) + file_migrate_timeout(nullptr), -1);
    EXPECT_EQ(file_migrate_process(nullptr), 1);
    EXPECT_EQ(Text(file_migrate_finish(nullptr)), "6 -1 0 client is NULL");
}

TEST(CPolling, ACancelledRequestLeavesNoReplyForTheNext) {
    FakeDaemon daemon({{.bytes = ReplyBytes(1, 0), .delay = milliseconds(50)}, {ReplyBytes(0, 0, {"a:0", "b:0"})}, {}});
    const CClient client(daemon.socketPath);
    const file_migrate_request request = FILE_MIGRATE_REQUEST(FILE_MIGRATE_IS_DIR, "/a");
    EXPECT_EQ(file_migrate_begin(client.c, &request).result, 0);
    EXPECT_EQ(file_migrate_process(client.c), 0);
    file_migrate_cancel(client.c);
    EXPECT_EQ(file_migrate_timeout(client.c), -1);

    std::string names;
    const auto takeOne = [](void* context, const char* name, int isDirectory) {
        Append(context, name, isDirectory);
        return 1;
    };
    EXPECT_EQ(file_migrate_list_each(client.c, "/d", takeOne, &names).status, FILE_MIGRATE_CANCELLED);
    EXPECT_EQ(names, "a:0 ");
    EXPECT_EQ(file_migrate_is_dir(client.c, "/b").result, 0);
    EXPECT_EQ(daemon.Requests().size(), 3U);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
