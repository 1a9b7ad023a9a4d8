// What the daemon sends to the journal. The journal's socket is replaced by one that the test reads, or does not read.
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using enum Command;
const Request EXISTING{IsExist, "/data"}, NOTHING{MkDir, "/data", "", "", "", "", 1};

struct JournalTest : DaemonTest {
    void SetUp() override {
        DaemonTest::SetUp();
        if (IsSkipped() || std::getenv("FILE_MIGRATE_SANDBOX") != std::string("private")) {
            GTEST_SKIP() << "needs privilege: a mount namespace for a journal of its own";
        }
        journal = BoundSocket(tree->Dir("run/systemd/journal") + "/socket", SOCK_DGRAM | SOCK_NONBLOCK);
    }

    void StartLoggingToJournal(const std::string& environment = "", const std::string& runner = "") {
        Start({{},
               {"unshare", "-m", "sh", "-c",
                "mount --bind " + tree->Path("run") + " /run; export " + environment +
                    " JOURNAL_STREAM=$(stat -Lc %d:%i /proc/self/fd/2); exec " + runner + " \"$0\" \"$@\""}});
    }

    /// The entries since the last call.
    Strings Entries() {
        Strings entries;
        std::string text(65536, '\0');
        for (ssize_t n = 0; (n = recv(journal.Get(), text.data(), text.size(), 0)) > 0;) {
            entries.push_back(text.substr(0, static_cast<std::size_t>(n)));
        }
        return entries;
    }

    /// The entries since the last call, shortened to "PRIORITY FUNCTION".
    Strings Shortened() {
        static const std::regex fields(R"(PRIORITY=(\d)\n[^]*CODE_FUNC=(\w+)\n)");
        Strings shortened = Entries();
        for (std::string& entry : shortened) {
            std::smatch match;
            entry = std::regex_search(entry, match, fields) ? match.str(1) + " " + match.str(2) : "no field: " + entry;
        }
        return shortened;
    }

    UniqueFd journal;
};

TEST_F(JournalTest, GetsStartChangesRefusalsAndFailures) {
    StartLoggingToJournal();
    EXPECT_EQ(Shortened(), Strings{"6 CreateServer"});
    ASSERT_TRUE(Shell("touch file; mkfifo pipe"));
    const std::tuple<const char*, Request, Strings> rows[] = {
        {"query", EXISTING, {}},
        {"query of something missing", Ask(IsExist, "@/x"), {}},
        {"query that fails", Ask(IsDir, "@/x"), {"3 IsDir", "3 SendResMsg"}},
        {"change", Ask(ChMod, "@/file", "", "", "", "640", 1), {"5 HandleCmd"}},
        {"change that does nothing", NOTHING, {"5 HandleCmd"}},
        {"change that fails", Ask(TryRemove, "/proc/self"), {"5 HandleCmd", "3 DoUnlink", "3 SendResMsg"}},
        {"move of a pipe below a file",
         Ask(MoveAll, "@/pipe", "@/file/x"),
         {"5 HandleCmd", "3 DoMove", "3 SendResMsg"}},
        {"copy of nothing", Ask(CopyAll, "@/x", "@/x"), {"5 HandleCmd", "3 ProcessMigrateAllCmd", "3 SendResMsg"}},
        {"mode that is none",
         Ask(ChMod, "@/file", "", "", "", "x", 1),
         {"5 HandleCmd", "3 ProcessChModCmd", "3 SendResMsg"}},
        {"move to another file system", Ask(MoveAll, "@/file", "~/t"), {"5 HandleCmd"}},
    };
    for (const auto& [name, request, expected] : rows) {
        Call(request);
        EXPECT_EQ(Shortened(), expected) << name;
    }
    RawClient refused;
    refused.Send({ChMod, "/", "", "", "", "-1", 1});
    Strings entries;
    EXPECT_TRUE(Becomes([&] { return !(entries = Shortened()).empty(); }));
    EXPECT_EQ(entries, Strings{"3 IsRecvMsgValid"});
    EXPECT_EQ(daemon->Log(), "") << "on standard error";
}

/// A value with a newline has its length before it, so it cannot forge a field.
TEST_F(JournalTest, FailuresHaveFieldsThatTheirPathsCannotForge) {
    StartLoggingToJournal();
    const auto binary = [](const std::string& name, const std::string& value) {
        const std::uint64_t size = htole64(value.size());
        return name + "\n" + std::string(reinterpret_cast<const char*>(&size), sizeof(size)) + value + "\n";
    };
    const std::string src = tree->File("a\nMESSAGE_ID=0\n", "x"), dst = tree->Path("missing/x");
    Call({MoveAll, src, dst});
    const Strings entries = Entries();
    ASSERT_EQ(entries.size(), 4U);  // start, request, failure, result
    const std::size_t id = entries[2].find("\nMESSAGE_ID=");
    ASSERT_NE(id, std::string::npos);
    EXPECT_EQ(entries[2].substr(id + 45),
              "OPERATION=MOVE\nERRNO=2\n" + binary("SOURCE", src) + binary("DESTINATION", dst));
    EXPECT_NE(ReadFile(CATALOG_PATH).find("-- " + entries[2].substr(id + 12, 32) + "\n"), std::string::npos)
        << "not the number that the catalog explains";
}

TEST_F(JournalTest, GetsRoutineLinesIfAskedFor) {
    StartLoggingToJournal("FILE_MIGRATE_LOG_ALL=1");
    RawClient().Call(EXISTING);
    const Strings entries = Shortened();
    EXPECT_GE(std::count(entries.begin(), entries.end(), "7 HandleCmd"), 1);
    EXPECT_GE(std::count(entries.begin(), entries.end(), "7 EpollAccept"), 1);
}

/// Several workers may hear of one request, but only one of them finds it.
TEST_F(JournalTest, GetsAFailureToReadUnlessItIsUsual) {
    for (const auto& [error, line] : {std::pair{"EAGAIN", "7 ThreadTaskExecute"},
                                      {"ECONNRESET", "7 ThreadTaskExecute"},
                                      {"EIO", "3 ThreadTaskExecute"}}) {
        StartLoggingToJournal("FILE_MIGRATE_LOG_ALL=1",
                              std::string("strace -fqqo /dev/null -einject=recvfrom:error=") + error);
        RawClient client;
        client.Send(EXISTING);
        Strings entries;
        EXPECT_TRUE(Becomes([&, line = line] {
            std::ranges::move(Shortened(), std::back_inserter(entries));
            return std::ranges::count(entries, line) == 1;
        })) << error;
    }
}

TEST_F(JournalTest, IsNotWaitedFor) {
    StartLoggingToJournal();
    RawClient client;
    for (int i = 0; i < 1000; ++i) {
        client.Send(NOTHING);
        ASSERT_TRUE(client.Receive()) << "the request waits for the journal";
    }
    (void)Entries();
    client.Call(NOTHING);
    const Strings entries = Entries();
    ASSERT_FALSE(entries.empty());
    EXPECT_TRUE(std::regex_search(entries[0], std::regex("[0-9]+ lines are missing here"))) << entries[0];
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
