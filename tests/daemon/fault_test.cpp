// System calls that fail inside the running daemon, or in whose place it is killed. SurvivesTheFailureOfAnySystemCall
// sends each kind of request under strace to see which calls it makes, then again with one of them failing. By default
// it tries at most one fault for each call of a request; with FILE_MIGRATE_FAULTS=all it tries several errors at the
// first, second and last occurrence. KilledDaemonLosesNoFile does the same with SIGKILL, by default in the place of a
// few calls of each request; with the variable, of each call, or of 200 calls of a request with a large tree.
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <fstream>
#include <map>
#include <set>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using enum Command;
const std::string kContent(70000, 'c');

struct Way {
    Command cmd;
    const char* src;
    const char* dst;
    const char* arrived;   ///< where the files are after a success; empty if they are to be gone
    bool isLarge = false;  ///< so many files that several threads walk them
};

const Way kWays[] = {
    {MoveSub, "@/src", "~", "~"},
    {MoveAll, "@/src", "~/dst", "~/dst"},
    {MoveAll, "@/src", "~/dst", "~/dst", true},
    {CopyAll, "@/src", "~/dst", "~/dst"},
    {CopyAll, "@/pipe", "@/dst", "@/dst"},  // the pipe makes the daemon copy twice and dump the kernel log
    {Remove, "@/src", "", ""},
    {TryRemove, "@/src", "", ""},
    {CopyComb, "@/src", "@/sub", "@/sub"},
    {CopyComb, "@/src", "~/sub", "~/sub", true},
    {MoveAll, "@/src", "@/missing/dst", "@/src"},  // fails without any fault: the destination's parent is missing
    {ListDir, "@/src", "", "@/src"},
};

/// Waits until the status of each thread holds a line. Threads that have ended do not count.
bool HasEvery(const std::vector<fs::path>& threads, const std::string& line) {
    return Becomes([&] {
        return std::ranges::all_of(threads, [&line](const fs::path& thread) {
            std::ifstream stream(thread / "status");
            const std::string status{std::istreambuf_iterator<char>(stream), {}};
            return status.empty() || status.find(line) != std::string::npos;
        });
    });
}

/// Attaches strace to a running daemon. When this returns, strace counts the calls of every thread. It also counts
/// those of the threads that are started later.
/// @return strace's process id, for StopTrace
pid_t Trace(pid_t daemon, const std::string& expression) {
    const fs::directory_iterator tasks("/proc/" + std::to_string(daemon) + "/task");
    const std::vector<fs::path> threads(begin(tasks), end(tasks));
    EXPECT_TRUE(HasEvery(threads, "State:\tS"));  // strace miscounts a thread that it attaches to between two calls
    const pid_t strace = fork();
    if (strace == 0) {
        const std::string process = std::to_string(daemon);
        execlp("strace", "strace", "-fqqo", CALLS, "-e", expression.c_str(), "-p", process.c_str(), nullptr);
        _exit(127);
    }
    EXPECT_TRUE(HasEvery(threads, "TracerPid:\t" + std::to_string(strace)));
    return strace;
}

void StopTrace(pid_t strace) {
    kill(strace, SIGINT);
    waitpid(strace, nullptr, 0);
}

struct FaultTest : DaemonTest {
    void MakeTrees(bool areLarge = false) {
        NewTrees();
        tree->Dir("sub");
        second->Dir("sub");
        for (const std::string source : {"src", "pipe"}) {
            for (const auto& [name, content] : FilesOf(areLarge)) {
                tree->File(source + name, content);
            }
        }
        EXPECT_EQ(mkfifo(tree->Path("pipe/pipe").c_str(), 0644), 0);
    }

    /// The names of a source's files with their contents.
    static std::map<std::string, std::string> FilesOf(bool areLarge) {
        std::map<std::string, std::string> files{{"/d/a", kContent}, {"/d/b", kContent}};
        for (int i = 0; areLarge && i < 300; ++i) {
            const std::string directory = std::to_string(i % 30), number = std::to_string(i);
            files["/" + directory + "/" + number] = number;
        }
        return files;
    }

    /// The files that are whole in none of the directories.
    std::string Missing(const Strings& directories, bool areLarge = false) {
        std::string missing;
        for (const auto& [name, content] : FilesOf(areLarge)) {
            const auto isWhole = [&, name = name, content = content](const std::string& directory) {
                const std::string path = Expand(directory) + name;
                return fs::is_regular_file(path) && ReadFile(path) == content;
            };
            missing += std::ranges::any_of(directories, isWhole) ? "" : name + " ";
        }
        return missing;
    }

    bool HasFiles(const std::string& directory, bool areLarge = false) {
        return Missing({directory}, areLarge).empty();
    }

    bool IsAsPromised(const Way& way, bool isSuccess) {
        const bool isMove = way.cmd == MoveSub || way.cmd == MoveAll;
        const bool mayLose = way.cmd == CopyComb || *way.arrived == '\0';
        const bool isLarge = way.isLarge;
        const bool hasArrived = *way.arrived == '\0' ? !fs::exists(Expand(way.src)) : HasFiles(way.arrived, isLarge);
        return isSuccess ? hasArrived : mayLose || HasFiles(way.src, isLarge) || (isMove && hasArrived);
    }

    /// Sends a request while strace runs with the expression, and classifies what happened.
    /// @return "ok-succeeded"; "ok-failed": the failure was recorded or logged, and no file was lost; "unreported": it
    /// was neither recorded nor logged; "untrue": the daemon answered 0 but did not do the work; "lost"; "hung";
    /// "crashed"
    std::string Outcome(const Way& way, const std::string& expression) {
        MakeTrees(way.isLarge);
        std::ofstream(RECORD_FILE_AB) << std::string(260 * 1024, ' ');  // the first record rotates it
        const FileMigrateRcvMsg request =
            Request{way.cmd, Expand(way.src), Expand(way.dst), "0", "1000", "0750"}.Wire();
        const auto log = [this, before = daemon->Log().size()] { return daemon->Log(before); };
        const pid_t strace = Trace(daemon->Pid(), expression);
        const RawClient client;
        (void)!send(client.Fd(), &request, sizeof(request), MSG_NOSIGNAL);  // fails if the connection was dropped
        FileMigrateResMsg reply{};
        bool isAnswered = false;
        const auto isDone = [&] {
            const std::string text = log();
            // Lines about an earlier connection with the same descriptor come before this one's.
            const std::size_t accepted = std::min(text.size(), text.find("acceptfd: ") + 10);
            const std::string fd = text.substr(accepted, text.find('\n', accepted) - accepted);
            const bool isDropped = text.find("connection dropped") != text.npos;
            // After the log, because an answer may come between the two looks.
            isAnswered = recv(client.Fd(), &reply, sizeof(reply), MSG_DONTWAIT) == sizeof(reply);
            return isAnswered || isDropped || text.find("fd:" + fd + ", refcnt:1\n", accepted) != text.npos ||
                   daemon->WaitExit(Deadline{0});
        };
        const bool isOver = Becomes(isDone, Deadline{10000});
        StopTrace(strace);
        if (daemon->WaitExit(Deadline{0})) {
            return "crashed";
        }
        RawClient next;
        next.Send({IsExist, "/data"});
        if (!isOver || !next.Receive(Deadline{10000})) {
            return "hung";
        }
        const bool isSuccess = isAnswered && reply.result == 0;
        if (!IsAsPromised(way, isSuccess)) {
            return isSuccess ? "untrue" : "lost";
        }
        static const std::regex logged(R"(update/migrate/[^\n]* failed|errno: \d+, eventfd|err, ret: -1|dropped)");
        const std::string record = fs::exists(RECORD_FILE_AB) ? ReadFile(RECORD_FILE_AB) : "";
        const bool isReported = record.find("type:") != record.npos || std::regex_search(log(), logged);
        return isSuccess ? "ok-succeeded" : isReported ? "ok-failed" : "unreported";
    }

    /// The occurrence numbers of each call in strace's output, as `when=` counts them: per thread and call name. Writes
    /// to the log are listed separately. Left out are calls whose failure makes the C library or a sanitizer abort, the
    /// allocator's calls, and calls that strace has no name for.
    static std::map<std::string, std::set<int>> CallsMade() {
        static const std::regex line(
            R"((\d+) +(?!futex|restart_|rseq|sched_|sigalt|syscall_|m?map|munmap|mprotect|brk|madvise)(\w+)\((2,)?.*)");
        std::map<std::string, int> counts;
        std::map<std::string, std::set<int>> calls;
        std::ifstream lines(CALLS);
        std::smatch match;
        for (std::string text; std::getline(lines, text);) {
            if (std::regex_match(text, match, line)) {
                const bool isLog = match[2] == "write" && match[3].matched;
                calls[match.str(2) + (isLog ? " (log)" : "")].insert(++counts[match.str(1) + match.str(2)]);
            }
        }
        return calls;
    }

    Reply Call(const Way& way) { return DaemonTest::Call({way.cmd, way.src, way.dst, "0", "0", "0700", 2}); }
};

TEST_F(FaultTest, SurvivesTheFailureOfAnySystemCall) {
    for (std::size_t turn = 0; const Way& way : kWays) {
        Start();
        EXPECT_TRUE(Outcome(way, "trace=all").starts_with("ok-")) << way.src;
        for (const auto& [call, numbers] : CallsMade()) {
            Strings faults;
            for (const std::string error : {"ENOMEM", "EIO", "ENOSPC", "EDQUOT", "EMFILE", "EACCES", "EINTR"}) {
                for (const int n :
                     std::set{*numbers.begin(), *std::next(numbers.begin(), numbers.size() > 1), *numbers.rbegin()}) {
                    faults.push_back(":error=" + error + ":when=" + std::to_string(n));
                }
            }
            if (std::getenv("FILE_MIGRATE_FAULTS") == nullptr) {
                faults = {faults[turn++ % faults.size()]};
                faults.resize(way.isLarge && turn % 4 != 0 ? 0 : 1);  // the large ways take longer
            }
            for (const std::string& fault : faults) {
                const std::string outcome = Outcome(way, "inject=" + call.substr(0, call.find(' ')) + fault);
                EXPECT_TRUE(outcome.starts_with("ok-")) << int(way.cmd) << way.src << call << fault << outcome;
            }
        }
    }
}

/// A new daemon then gets the same request.
TEST_F(FaultTest, KilledDaemonLosesNoFile) {
    for (const Way& way : kWays) {
        if (*way.arrived == '\0' || way.arrived == std::string("@/src")) {
            continue;
        }
        Start();
        EXPECT_EQ(Outcome(way, "trace=all"), "ok-succeeded") << int(way.cmd) << way.src;
        Strings kills;
        for (const auto& [call, numbers] : CallsMade()) {
            for (const int n : call == "epoll_wait" ? std::set<int>() : numbers) {  // made without a request, too
                kills.push_back("inject=" + call.substr(0, call.find(' ')) + ":signal=KILL:when=" + std::to_string(n));
            }
        }
        const std::size_t tries = std::getenv("FILE_MIGRATE_FAULTS") == nullptr ? 6 : way.isLarge ? 200 : kills.size();
        const std::size_t step = kills.size() / tries;
        std::size_t killed = 0;
        for (std::size_t at = step / 2; at < kills.size(); at += step) {
            SCOPED_TRACE(testing::Message() << int(way.cmd) << way.src << way.isLarge << kills[at]);
            Start();
            RawClient().Call({IsExist, "/data"});  // answered once all workers are there
            const std::string outcome = Outcome(way, kills[at]);
            killed += outcome == "crashed";
            EXPECT_EQ(Missing({way.src, way.arrived}, way.isLarge), "");
            Start();
            const int result = outcome == "crashed" ? Call(way).result : 0;
            EXPECT_EQ(Missing({way.src, way.arrived}, way.isLarge), "") << "with the same request again";
            const bool isExplained = !Found("E [^\n]*" + tree->Path() + "[^\n]* failed").empty();
            EXPECT_TRUE(result == -1 ? isExplained : HasFiles(way.arrived, way.isLarge)) << result;
        }
        EXPECT_GT(2 * killed, kills.size() / step);
    }
}

TEST_F(FaultTest, FullDiskFailsTheRequestAndKeepsTheSource) {
    Start();
    for (const Command cmd : {CopyAll, MoveAll, CopyComb, IsDir}) {
        MakeTrees();
        const std::string small = cmd == IsDir ? fs::path(RECORD_FILE_AB).parent_path().string() : tree->Dir("sub");
        if (mount("small", small.c_str(), "tmpfs", 0, "size=64k") != 0) {
            GTEST_SKIP() << "needs privilege: a mount";
        }
        std::ofstream(small + "/filler") << std::string(65536, 'f');
        const std::string dst = small + (cmd == CopyComb ? "" : "/dst");
        const Request request{cmd, cmd == IsDir ? "@/missing" : "@/src", dst, "0", "0", "0700"};
        EXPECT_EQ(DaemonTest::Call(request), (Reply{-1, cmd == IsDir ? ENOENT : ENOSPC}));
        EXPECT_EQ(HasFiles("@/src"), cmd != CopyComb);
        EXPECT_TRUE(cmd == IsDir || ReadFile(RECORD_FILE_AB).find("errno:28,") != std::string::npos);
        umount2(small.c_str(), MNT_DETACH);
    }
    EXPECT_TRUE(Await("file_migrate_ab.txt failed, errno: 28\\."));
    DaemonTest::Call({IsDir, "@/missing"});
    EXPECT_EQ(Records().size(), 1U) << "recorded again with room";
}

TEST_F(FaultTest, UnreadableDirectoriesStayAndAreRecorded) {
    Start(WITHOUT_OVERRIDES);
    const std::pair<Way, const char*> rows[] = {{{CopyAll, "@/src", "@/dst", "@/dst"}, "type:COPY,"},
                                                {{MoveAll, "@/src", "~/dst", "~/dst"}, "type:COPY,"},
                                                {{Remove, "@/src", "", ""}, "type:REMOVE,"},
                                                {{TryRemove, "@/src/d", "", ""}, "type:OPEN_TRYREMOVE,"},
                                                {{CopyComb, "@/src/d", "@/sub", ""}, "type:OPEN_COPYCOMBRECURSE,"}};
    for (const auto& [way, record] : rows) {
        MakeTrees();
        tree->File("src/other");
        ASSERT_TRUE(Shell("chmod 0 src/d; chown 1000:1000 src/d"));
        EXPECT_EQ(Call(way), (Reply{-1, EACCES})) << record;
        EXPECT_TRUE(HasFiles("@/src") && ReadFile(RECORD_FILE_AB).starts_with(record)) << record;
        EXPECT_TRUE(*way.arrived == '\0' || fs::exists(Expand(way.arrived) + "/other")) << "the rest was not copied";
    }
}

/// Some errors come after all calls seemed to have worked: a directory's listing breaks off, a network file system
/// reports a full disk when a file is closed, a disk when it is flushed. Each call on a path fails in turn, and with it
/// all that follow.
TEST_F(FaultTest, LateErrorsFailTheRequestAndLoseNothing) {
    // The request, the call and its path, and the types of the record.
    const std::tuple<Way, std::string, std::string, std::string> rows[] = {
        {{PrepareDir, "@/sub", "", ""}, "/access", "@/sub", "ISEXIST"},
        {{ChOwn, "@/src", "", "@/src"}, "getdents64", "@/src/d", "OPEN_CHMOWNERECURSE"},
        {{ChMod, "@/src", "", "@/src"}, "getdents64", "@/src/d", "OPEN_CHMODERECURSE"},
        {{TryRemove, "@/src", "", ""}, "getdents64", "@/src/d", "OPEN_TRYREMOVE"},
        {{Remove, "@/src", "", ""}, "getdents64", "@/src/d", "REMOVE"},
        {{CopyAll, "@/src", "@/dst", "@/src"}, "getdents64", "@/src/d", "COPY"},
        {{CopyAll, "@/pipe", "@/dst", "@/pipe"}, "getdents64", "@/pipe/d", "COPY"},
        {{MoveAll, "@/src", "~/dst", "~/dst"}, "getdents64", "@/src/d", "COPY|REMOVE"},
        {{CopyComb, "@/src", "@/sub", "@/sub"}, "getdents64", "@/src/d", "OPEN_COPYCOMBRECURSE|REMOVE"},
        {{CopyAll, "@/src", "@/dst", "@/src"}, "close", "@/dst/d/a", "COPY"},
        {{CopyAll, "@/src/d/a", "@/dst", "@/src"}, "close", "@/dst", "COPY"},
        {{CopyAll, "@/pipe", "@/dst", "@/pipe"}, "close", "@/dst/d/a", "COPY"},
        {{MoveAll, "@/src", "~/dst", "@/src"}, "close", "~/dst/d/a", "COPY"},
        {{MoveAll, "@/pipe", "~/dst", "@/pipe"}, "close", "~/dst/d/a", "COPY"},
        {{CopyComb, "@/src", "@/sub", ""}, "close", "@/sub/d/a", "COPY"},
        {{MoveAll, "@/src", "~/dst", "@/src"}, "syncfs", "~/dst", "COPY"},
        {{CopyComb, "@/src", "@/sub", "@/src"}, "syncfs", "@/sub", "COPY"},
    };
    for (const auto& [way, call, path, record] : rows) {
        bool isInjected = true;
        for (int number = 1; isInjected; ++number) {
            SCOPED_TRACE(testing::Message() << int(way.cmd) << ' ' << path << ' ' << call << ' ' << number);
            MakeTrees();
            const std::string when = ":error=EIO:when=" + std::to_string(number) + "+";
            StartWithFault({"-P", Expand(path), "-einject=" + call + when});
            const Reply reply = Call(way);
            isInjected = ReadFile(CALLS).find("(INJECTED)") != std::string::npos;
            EXPECT_TRUE(number > 1 || isInjected);
            if (isInjected) {
                EXPECT_EQ(reply.result, -1);
                EXPECT_TRUE(reply.errCode == EIO || (way.cmd == TryRemove && reply.errCode == ENOTEMPTY))
                    << reply.errCode;
                EXPECT_TRUE(*way.arrived == '\0' || HasFiles(way.src) || HasFiles(way.arrived));
                const std::string recorded = ReadFile(RECORD_FILE_AB);
                EXPECT_TRUE(std::regex_search(recorded, std::regex("type:(" + record + "),"))) << recorded;
            }
        }
    }
}

/// Each file whose copy fails is removed. Not where the daemon has run out of descriptors or memory: that says nothing
/// about the file, and fails all that follow.
TEST_F(FaultTest, ExhaustedDaemonEndsACombinedCopy) {
    for (const std::string error : {"EMFILE", "ENFILE", "ENOMEM"}) {
        for (const int call : {1, 2, 3, 4, 5, 6}) {
            MakeTrees();
            StartWithFault({"-P", Expand("@/src/d"), "-P", Expand("@/sub/d"), "-P", Expand("@/src/d/a"), "-P",
                            Expand("@/src/d/b"),
                            "-einject=openat:error=" + error + ":when=" + std::to_string(call) + "+"});
            const Reply reply = Call({CopyComb, "@/src", "@/sub", ""});
            for (const std::string name : {"/d/a", "/d/b"}) {
                const bool isWhole = fs::exists(Expand("@/src" + name)) || ReadFile(Expand("@/sub" + name)) == kContent;
                EXPECT_TRUE(isWhole) << error << call << name << reply.result;
            }
        }
    }
}

/// Errors that only show what a file system cannot do, and interruptions. The file with a hole is read in two parts.
TEST_F(FaultTest, CopiesGoOnWhereAnotherWayIsLeft) {
    const std::string unable = "-einject=copy_file_range:error=";
    std::vector<Strings> rows = {{unable + "EINVAL", "-einject=pread64:error=EINTR:when=1"},
                                 {unable + "EINVAL", "-einject=pwrite64:error=EINTR:when=1"},
                                 {"-einject=copy_file_range:retval=0"},
                                 {"-einject=lseek:error=EINVAL"}};
    for (const char* error :
         {"EXDEV", "EINVAL", "ENOSYS", "EOPNOTSUPP", "EPERM", "ETXTBSY", "EINTR:when=1", "EINVAL:when=2+"}) {
        rows.push_back({unable + error});
    }
    for (Strings faults : rows) {
        SCOPED_TRACE(testing::PrintToString(faults));
        MakeTrees();
        ASSERT_TRUE(Shell("truncate -s 9M src/hole; cat src/d/a >>src/hole"));
        for (const char* file : {"@/src/d/a", "@/src/hole", "@/dst/d/a", "@/dst/hole"}) {
            faults.insert(faults.end(), {"-P", Expand(file)});
        }
        StartWithFault(faults);
        EXPECT_EQ(Call({CopyAll, "@/src", "@/dst", ""}).result, 0);
        EXPECT_TRUE(Found("orig copy meet err").empty()) << "a second pass was needed";
        EXPECT_TRUE(Shell("diff -r src dst")) << "the copy is not the same";
        EXPECT_NE(ReadFile(CALLS).find("(INJECTED)"), std::string::npos);
    }
}

TEST_F(FaultTest, EntriesWithoutATypeAreLookedUp) {
    Start({{"LD_PRELOAD=" NO_TYPES_PATH}, {}});
    for (const Way& way : kWays) {
        MakeTrees(way.isLarge);
        const bool isSuccess = Call(way).result == 0;
        EXPECT_TRUE(isSuccess == (way.dst != std::string("@/missing/dst")) && IsAsPromised(way, isSuccess))
            << int(way.cmd) << way.src;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
