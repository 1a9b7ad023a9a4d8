// The process around the commands: its start and end, its connections and workers, and what it leaves on disk when a
// system call fails under it.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <fstream>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

const Request EXISTING{Command::IsExist, "/data"};         // answered with 1
const Request MISSING{Command::IsExist, "/data/missing"};  // answered with 0
const Request FAILING{Command::IsDir, "/data/missing"};    // answered with -1 and recorded

struct ServerTest : DaemonTest {
    void TearDown() override {
        Release();
        DaemonTest::TearDown();
    }

    /// The daemon's descriptor for the n-th client that connected.
    std::string AcceptedFd(size_t n) { return Await("acceptfd: ", n) ? Found("acceptfd: .*")[n - 1].substr(10) : ""; }

    /// Sends requests that are not answered until Release(): their record goes into a pipe that nobody reads.
    Clients Hold(std::size_t count) {
        EXPECT_EQ(mkfifo(RECORD_FILE_AB, 0600), 0);
        Clients clients(count);
        SendAll(clients, FAILING);
        EXPECT_TRUE(Await("HandleCmd", std::min<std::size_t>(count, 4)) && Await("AddThreadTask", count));
        return clients;
    }

    void Release() {
        if (fs::is_fifo(RECORD_FILE_AB)) {
            recordReader = UniqueFd(open(RECORD_FILE_AB, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
            unlink(RECORD_FILE_AB);
        }
    }

    /// Sets the daemon's clock to so many seconds after its count of milliseconds wraps, starting the daemon with it or
    /// letting it wake up some times. Its clocks all count from the epoch then: without a fixed place the wrap would
    /// come in the middle of some test, every 50 days.
    void SetClock(std::int64_t seconds) {
        const std::string file = tree->Path("clock");
        std::ofstream(file + ".new") << '+' << untilWrap + seconds;
        fs::rename(file + ".new", file);
        if (!daemon) {
            // TZ: without it the C library reads the zone anew each time, under a lock that thread checkers do not see.
            Start({{"LD_PRELOAD=/usr/$LIB/faketime/libfaketimeMT.so.1", "FAKETIME_NO_CACHE=1", "TZ=UTC",
                    "FAKETIME_TIMESTAMP_FILE=" + file}});
        }
        daemon->WaitExit(Deadline{300});
    }

    UniqueFd recordReader;
    const std::int64_t untilWrap = [] {
        const std::int64_t now = std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
        return ((2LL << 32) - now % (1LL << 32)) / 1000;  // not the next wrap, which may be a moment away
    }();
};

TEST_F(ServerTest, EndsTenMinutesAfterTheLastEventOrRequest) {
    SetClock(1000);
    SetClock(1590);
    Clients clients = Hold(2);
    SetClock(2180);
    EXPECT_TRUE(Found("EpollHandler end").empty()) << "not postponed by an event";
    SetClock(3000);
    EXPECT_TRUE(Found("EpollHandler end").empty()) << "not postponed by the requests in progress";
    clients.emplace_back();
    EXPECT_EQ(clients.back().Call(EXISTING).result, 1);
    Release();
    EXPECT_TRUE(clients[0].Receive() && clients[1].Receive());
    SetClock(3590);
    EXPECT_TRUE(Found("EpollHandler end").empty()) << "not postponed by the end of the requests";
    clients.emplace_back();
    EXPECT_NE(AcceptedFd(clients.size()), "");
    SetClock(4180);
    EXPECT_TRUE(Found("EpollHandler end").empty()) << "not postponed by a connection without a request";
    SetClock(4800);
    EXPECT_EQ(daemon->WaitExit(), 0);
    EXPECT_EQ(Found("I .EpollHandler. Maser thread EpollHandler end\\.").size(), 1U);
    EXPECT_EQ(Found("E .~FileMigrateSocketServer. closefd: \\d+, refcnt: 1").size(), clients.size());
}

TEST_F(ServerTest, EndsWhenTheMillisecondCountWrapsWhileIdle) {
    SetClock(-60);
    EXPECT_TRUE(Found("EpollHandler end").empty());
    SetClock(10);
    EXPECT_EQ(daemon->WaitExit(), 0);
}

TEST_F(ServerTest, GivesUpWithoutSocketOrWorkers) {
    const std::string path = SOCKET_PATH, asked = "I [CreateServer] Get socket from env " + path + " socketId -1";
    EXPECT_EQ(Start({{}, {"sh", "-c", "touch " + path + "; exec \"$0\" \"$@\""}, false}).WaitExit(), 0);
    EXPECT_EQ(Found(".+"), (Strings{asked, "E [CreateServerSocket] Failed to bind socket",
                                    "E [CreateServer] Failed to create socket " + path}));
    if (IS_SANITIZED) {
        return;  // a thread of the sanitizer's own may be among the first three
    }
    const std::string over = "I [ThreadTaskExecute] Task thread exit", waited = "wait taskthread exit.";
    EXPECT_EQ(Start({{}, {"strace", "-fqqo", CALLS, "-einject=clone,clone3:error=EAGAIN:when=3"}, false}).WaitExit(),
              0);
    EXPECT_EQ(Found(".+"), (Strings{asked, over, over, "I [ReleaseThreadTask] ReleaseThreadTask " + waited,
                                    "E [ThreadPoolInit] Failed to create thread."}));
}

TEST_F(ServerTest, RefusesArguments) {
    for (const auto& [arguments, status, output] : {std::tuple{"--version", 0, "^file_migrate_orvane [0-9.]+\n$"},
                                                    {"--help", 2, "^usage: .*\n$"},
                                                    {"--version x", 2, "^usage: .*\n$"},
                                                    {"''", 2, "^usage: .*\n$"}}) {
        Start({{}, {"sh", "-c", std::string("exec \"$0\" \"$@\" ") + arguments + " >&2"}, false});
        EXPECT_EQ(daemon->WaitExit(), W_EXITCODE(status, 0)) << arguments;
        EXPECT_TRUE(std::regex_match(daemon->Log(), std::regex(output))) << arguments << ": " << daemon->Log();
    }
}

TEST_F(ServerTest, TakesTheSocketOfInitAndKeepsTheNameOfItsThreads) {
    const UniqueFd listening = BoundSocket(tree->Path("socket"), SOCK_STREAM);
    ASSERT_EQ(listen(listening.Get(), 5) + fcntl(listening.Get(), F_SETFD, 0), 0);
    const std::string pass = "exec 3<&" + std::to_string(listening.Get()) + "; LISTEN_PID=$$ LISTEN_FDS=1 ";
    Start({{"LISTEN_FDNAMES=file_migrate_orvane"}, {"bash", "-c", pass + "exec \"$0\" \"$@\""}, false});
    EXPECT_EQ(RawClient(tree->Path("socket")).Call(EXISTING).result, 1);
    EXPECT_TRUE(Await("file_migrate_orvane socketId 3") && !fs::exists(SOCKET_PATH));
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(daemon->Pid()) + "/task")) {
        EXPECT_EQ(ReadFile(task.path() / "comm"), "file_migrate_or\n") << "what the kernel log will print";
    }
    shutdown(listening.Get(), SHUT_RDWR);
    EXPECT_EQ(daemon->WaitExit(), 0) << "no client can connect any more";
    EXPECT_EQ(Found("Failed to accept").size(), 1U);
}

TEST_F(ServerTest, LogLinesDoNotGoToAClientWhenStandardErrorIsClosed) {
    Start({{}, {"sh", "-c", "exec \"$0\" \"$@\" <&- >&- 2>&-"}});
    EXPECT_EQ(Call(EXISTING).result, 1);
    EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(daemon->Pid()) + "/fd/2"), "/dev/null");
}

TEST_F(ServerTest, SocketOfItsOwnAdmitsNobodyElseWhateverTheUmask) {
    for (const char* umask : {"000", "777"}) {
        Start({{}, {"sh", "-c", std::string("umask ") + umask + "; exec \"$0\" \"$@\""}});
        EXPECT_EQ(Lstat(SOCKET_PATH).st_mode & 07777, 0600U) << umask;
    }
}

/// The stack limit sets the default size of threads' stacks; "unlimited" means 2 MB. The daemon raises its limit of
/// descriptors, because a walk needs one for each level, and a copy two. Where root may not have so many, the deepest
/// trees only must not end the daemon.
TEST_F(ServerTest, DeepestTreesFitOnTheStack) {
    // The thread sanitizer takes at most 65,535 frames on a stack, and a copy of a directory has nine for each level.
    for (const int levels : {3000, IS_SANITIZED ? 5000 : 15000}) {
        Start({{}, {"prlimit", "--stack=unlimited", "--nofile=1024:"}});
        const std::string count = std::to_string(levels);
        ASSERT_TRUE(Shell("perl -e 'mkdir(\"d\", 0755), chdir \"d\" for 1.." + count + "'"));
        for (const Command command : {Command::ChMod, Command::ChOwn, Command::UsedSpace, Command::MaxSize,
                                      Command::CopyAll, Command::Remove, Command::TryRemove}) {
            const std::string path = command == Command::TryRemove ? "@/copy" : "@/d";
            const Reply reply = Call({command, path, "@/copy", "1", "2", "700", 2});
            EXPECT_TRUE(levels > 3000 || reply.errCode == 0) << int(command) << ' ' << reply.errCode;
            EXPECT_TRUE(levels > 3000 || command != Command::CopyAll ||
                        Shell("find copy -printf '%m\n' | uniq -c | xargs") == count + " 700\n");
        }
        EXPECT_TRUE(levels > 3000 || Shell("ls") == "");
        ASSERT_TRUE(Shell("rm -rf d copy"));
    }
}

TEST_F(ServerTest, FileSizeLimitFailsTheRequestOnly) {
    Start({{}, {"prlimit", "--fsize=1000000"}});
    ASSERT_TRUE(Shell("head -c 2000000 /dev/zero >large"));
    EXPECT_EQ(Call({Command::CopyAll, "@/large", "@/copy"}), (Reply{-1, EFBIG}));
}

TEST_F(ServerTest, LargeRepliesGiveBackTheirMemoryAndAreAnsweredWithoutIt) {
    if (IS_SANITIZED) {
        GTEST_SKIP() << "the sanitizer's own memory would run out";
    }
    ASSERT_TRUE(Shell("mkdir list; cd list; seq -f $(printf %0240d)%g 1000 8999 | xargs touch"));
    Start();
    RawClient client;
    EXPECT_EQ(client.Call(EXISTING).result, 1);
    const long before = daemon->Used().residentKb;
    EXPECT_GT(client.Call({Command::ListDir, tree->Path("list")}).packages.size(), 480U);
    const auto isGivenBack = [&] { return daemon->Used().residentKb - before < 1024; };
    EXPECT_TRUE(Becomes(isGivenBack, Deadline{5000})) << "the memory of a large reply is kept";
    const rlimit limit{static_cast<rlim_t>(daemon->Used().dataKb + 1024) * 1024, RLIM_INFINITY};
    ASSERT_EQ(prlimit(daemon->Pid(), RLIMIT_DATA, &limit, nullptr), 0);
    EXPECT_EQ(client.Call({Command::ListDir, tree->Path("list")}), (Reply{-1, ENOMEM}));
    EXPECT_EQ(client.Call(EXISTING).result, 1);
}

/// A client whose connection the event loop cannot watch, or who got a part of a record, sees the end of the stream.
TEST_F(ServerTest, ConnectionThatFailsIsClosed) {
    tree->File("file");
    for (const auto& [fault, line, isAnswered] :
         {std::tuple{"epoll_ctl:error=ENOSPC:when=2", "epoll_ctl failed, connection dropped", false},
          {"sendto:retval=5:when=1", "write res msg to fd:\\d+ err, ret: 5,", false},
          {"sendto:retval=100:when=2", "write extra msg to fd:\\d+ err, ret: 100,", true}}) {
        StartWithFault({"-einject=" + std::string(fault)});
        const RawClient client;
        const FileMigrateRcvMsg message = Request{Command::ListDir, tree->Path()}.Wire();
        (void)!send(client.Fd(), &message, sizeof(message), MSG_NOSIGNAL);
        FileMigrateResMsg head{};
        EXPECT_EQ(recv(client.Fd(), &head, sizeof(head), MSG_WAITALL) == sizeof(head), isAnswered) << fault;
        EXPECT_LE(recv(client.Fd(), &head, sizeof(head), 0), 0) << fault;
        EXPECT_TRUE(Await(line)) << fault;
        const std::string descriptor = "/proc/" + std::to_string(daemon->Pid()) + "/fd/" + AcceptedFd(1);
        EXPECT_TRUE(Becomes([&] { return !fs::exists(descriptor); })) << fault;
    }
}

TEST_F(ServerTest, PeerThatLeavesWhileItIsServedIsDroppedOnce) {
    const Strings gone{"refcnt:2", "EPOLLHUP", "refcnt:1", "err, ret: -1, errno: 32", "clear and close"};
    const Strings half{"refcnt:2", "refcnt:3", "Readline null", "refcnt:2", "refcnt:1", "EPOLLHUP", "clear and close"};
    for (const bool isHalf : {false, true}) {
        Start();
        RawClient busy = std::move(Hold(1)[0]);
        shutdown(busy.Fd(), isHalf ? SHUT_WR : SHUT_RDWR);
        ASSERT_TRUE(Await(isHalf ? "SubFdRef.*refcnt:2" : "SubFdRef.*refcnt:1"));
        if (!isHalf) {
            busy.Close();
        }
        RawClient next;
        EXPECT_NE(AcceptedFd(2), AcceptedFd(1)) << "closed under the worker";
        Release();
        ASSERT_TRUE(Await(isHalf ? "refcnt:1" : "clear and close"));
        EXPECT_TRUE(!isHalf || busy.Receive());
        busy.Close();
        ASSERT_TRUE(Await("clear and close"));
        EXPECT_EQ(Found("EPOLLHUP|refcnt:\\d|Readline null|err, ret.*|clear and close|not found"),
                  isHalf ? half : gone);
        EXPECT_EQ(next.Call(MISSING).result, 0) << "another's answer";
    }
}

TEST_F(ServerTest, StaleTasksHoldNoWorker) {
    Start();
    const Clients busy = Hold(4);
    Clients gone(2);
    const std::string reused = AcceptedFd(5), closed = AcceptedFd(6);
    SendAll(gone, EXISTING);
    ASSERT_TRUE(Await("AddThreadTask", 6));
    gone.clear();
    ASSERT_TRUE(Await("clear and close", 2));
    RawClient next;
    ASSERT_EQ(AcceptedFd(7), reused);
    Release();
    EXPECT_TRUE(Await("E .ThreadTaskExecute. Readline error, errno: 11, eventfd: " + reused));
    EXPECT_TRUE(Await("E .AddFdRef. " + closed + " not found int fdMap"));
    EXPECT_EQ(next.Call(MISSING).result, 0);
}

TEST_F(ServerTest, RecordThatCannotBeWrittenChangesNoAnswer) {
    for (const auto& [fault, line] : {std::pair{"write:retval=9", "write return len 9, not equal to content len"},
                                      {"write:error=ENOSPC", "write /.*/file_migrate_ab.txt failed, errno: 28\\."},
                                      {"fsync:error=EIO", "fsync /.*/file_migrate_ab.txt failed, errno: 5\\."}}) {
        StartWithFault({"-P", RECORD_FILE_AB, "-einject=" + std::string(fault)});
        EXPECT_EQ(Call(FAILING), (Reply{-1, ENOENT})) << fault;
        EXPECT_EQ(Found(std::string("E .WriteStringToFile. ") + line).size(), 1U) << fault;
    }
}

/// strace's fault that lets the daemon read a text of the test's as the kernel log.
std::string KernelLog(const std::string& text) {
    std::string fault = "-einject=syslog:retval=" + std::to_string(text.size()) + ":poke_exit=@arg2=";
    for (const char byte : text) {
        constexpr const char* DIGITS = "0123456789abcdef";
        fault += {DIGITS[byte >> 4], DIGITS[byte & 15]};
    }
    return fault + ":when=2";  // the first call asks for the size
}

TEST_F(ServerTest, KernelLogDumpIsWholeOrNotThere) {
    const std::string mine = "<4>avc: denied comm=file_migrate_or a=1\n<4>audit: comm=\"file_migrate_or\" b=2\n";
    const std::string others = "<6>comm=file_migrate_o\n<6>\"file_migrate_or\"\n<6>comm=\"file_migrate_o\" pid=1\n";
    const std::string mixed = others + mine + others + "comm=file_migrate_or, no newline";
    const std::array<std::string, 3> cases[] = {
        {KernelLog(mixed), "I .ReadKmsgToFile. filter orig kmsg and write succ", mine},
        {KernelLog(others), "read kernel log buffer len=", ""},
        {"-einject=syslog:error=EPERM:when=1", "E .ReadKmsgToFile. get kernel log buf size failed, errno=1", "none"},
        {"-einject=syslog:error=EPERM:when=2", "E .ReadKmsgToFile. read kernel log buffer failed, errno=1", "none"},
        {"-einject=lseek:error=EIO:when=2", "E .WriteStringToFile. lseek /.*kmsg.* failed, errno: 5", "none"},
        {"-einject=fsync:error=EIO:when=2", "E .WriteStringToFile. fsync /.*kmsg.* failed, errno: 5", "none"},
    };
    ASSERT_TRUE(Shell("mkdir from; mkfifo from/pipe"));  // the first copy stops at it with EINVAL
    for (const auto& [fault, line, content] : cases) {
        SCOPED_TRACE(line);
        ClearRecords();
        StartWithFault({fault});
        EXPECT_EQ(Call({Command::CopyAll, "@/from", "@/to"}).result, 0);
        EXPECT_EQ(Found(line).size(), 1U);
        const Strings dumps = KernelLogDumps("COPY");
        EXPECT_EQ(dumps.empty() ? "none" : ReadFile(dumps[0]), content);
        for (const std::string& dump : dumps) {
            const struct stat st = Lstat(dump), above = Lstat(DUMP_DIRECTORY);
            EXPECT_TRUE(st.st_mode == (S_IFREG | 0770U) && st.st_uid == 0 && st.st_gid == 1000);
            EXPECT_TRUE(above.st_mode == (S_IFDIR | 0771U) && above.st_uid == 0 && above.st_gid == 1000);
        }
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
