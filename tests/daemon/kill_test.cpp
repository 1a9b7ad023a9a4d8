// SIGKILL while the daemon works on a request, then a new daemon and the same request again. The request is first made
// under strace to see which system calls its workers make, then once for each of them, with the kill in its place. By
// default only some are tried; with FILE_MIGRATE_KILLS=all, every one.
#include <fstream>
#include <iostream>
#include <map>
#include <set>

#include "daemon_test.h"
#include "trace.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

namespace fs = std::filesystem;
using enum Command;

constexpr int SAMPLE = 6;  ///< kills of each way by default
constexpr int RESULT_SOURCE_MISSING = -2;
using Files = std::map<std::string, std::string>;
const Files kFiles = {
    {"a/1", std::string(70000, '1')}, {"a/2", "2"}, {"a/b/3", std::string(9000, '3')}, {"a/b/4", "4"}, {"c/5", "5"},
};

/// So many that several threads walk them.
Files ManyFiles() {
    Files files = kFiles;
    for (int i = 0; i < 400; ++i) {
        files[std::to_string(i % 40) + "/" + std::to_string(i)] = std::to_string(i);
    }
    return files;
}

struct Way {
    const char* name;
    Command cmd;
    const char* dst;
    Files files = kFiles;
};

const Way kWays[] = {
    {"MoveAll", MoveAll, "~/new"},
    {"MoveAll, large", MoveAll, "~/new", ManyFiles()},
    {"MoveSub", MoveSub, "~/old"},
    {"CopyComb", CopyComb, "~/old"},
    {"CopyComb, large", CopyComb, "~/old", ManyFiles()},
    {"CopyComb within", CopyComb, "@/old"},
    {"CopyAll", CopyAll, "~/new"},
};

class KillTest : public DaemonTest {
protected:
    void MakeTrees(const Files& files) {
        NewTrees();
        tree->Dir("old");
        second->Dir("old");
        for (const auto& [name, content] : files) {
            tree->File("src/" + name, content);
        }
    }

    static Request RequestOf(const Way& way) { return {way.cmd, "@/src", way.dst, "0", "1000", "0750"}; }

    /// The files that are whole in none of the directories.
    static std::string Missing(const Way& way, const std::vector<std::string>& directories) {
        std::string missing;
        for (const auto& file : way.files) {
            const auto isWhole = [&file](const std::string& top) {
                const std::string path = top + "/" + file.first;
                return fs::is_regular_file(path) && ReadFile(path) == file.second;
            };
            if (std::none_of(directories.begin(), directories.end(), isWhole)) {
                missing += " " + file.first;
            }
        }
        return missing;
    }

    pid_t TraceNewDaemon(const std::string& expression) {
        Start();
        RawClient().Call({IsExist, "/data"});  // answered once all workers are there
        return Trace(daemon->Pid(), expression);
    }

    /// Every call of the workers and their helpers as strace's expression for a kill in its place; strace counts the
    /// calls of each name in each thread. Attaching restarts a call of the event loop.
    std::vector<std::string> KillsOf(const Way& way) {
        MakeTrees(way.files);
        const pid_t strace = TraceNewDaemon("trace=all");
        EXPECT_EQ(Call(RequestOf(way)).result, 0) << way.name;
        EXPECT_TRUE(Await("refcnt:1\n"));
        StopTrace(strace);
        const std::regex line(R"((\d+) +(?!futex|restart_syscall)(\w+)\(.*)");
        std::map<std::string, int> counts;
        std::set<std::string> kills;
        std::ifstream lines(CALLS);
        std::smatch match;
        for (std::string text; std::getline(lines, text);) {
            if (std::regex_match(text, match, line) && match.str(1) != std::to_string(daemon->Pid())) {
                const int count = ++counts[match.str(1) + match.str(2)];
                kills.insert("inject=" + match.str(2) + ":signal=KILL:when=" + std::to_string(count));
            }
        }
        return {kills.begin(), kills.end()};
    }

    /// @return whether the daemon was killed; strace may miss a call that was made while it attached
    bool Kill(const Way& way, const std::string& expression) {
        MakeTrees(way.files);
        const pid_t strace = TraceNewDaemon(expression);
        RawClient client;
        client.Send(Expand(RequestOf(way)));
        (void)client.Receive();  // the reply, or the end of the stream
        const bool isDead = daemon->WaitExit(Deadline{200}).has_value();
        StopTrace(strace);
        return isDead;
    }

    /// Sends the request once more to a new daemon.
    /// @return "completed"; "done before": the source was gone and everything at the destination; "refused": the log
    /// names the object that is in the way; "untrue" or "unexplained" otherwise
    std::string Again(const Way& way) {
        Start();
        const int result = Call(RequestOf(way)).result;
        const bool hasArrived = Missing(way, {Expand(way.dst)}).empty();
        if (result == 0) {
            return hasArrived ? "completed" : "untrue";
        }
        if (result == RESULT_SOURCE_MISSING) {
            return hasArrived ? "done before" : "untrue";
        }
        return Found("E [^\n]*" + tree->Path() + "[^\n]* failed").empty() ? "unexplained" : "refused";
    }
};

TEST_F(KillTest, LosesNoFileAndGoesOnWithTheSameRequest) {
    for (const Way& way : kWays) {
        const std::vector<std::string> kills = KillsOf(way);
        const std::size_t step = std::getenv("FILE_MIGRATE_KILLS") != nullptr ? 1 : kills.size() / SAMPLE;
        std::map<std::string, std::size_t> outcomes;
        for (std::size_t at = step / 2; at < kills.size(); at += step) {
            const bool isKilled = Kill(way, kills[at]);
            EXPECT_EQ(Missing(way, {tree->Path("src"), Expand(way.dst)}), "") << way.name << ", " << kills[at];
            const std::string outcome = isKilled ? Again(way) : "not killed";
            EXPECT_EQ(Missing(way, {tree->Path("src"), Expand(way.dst)}), "") << way.name << " again, " << kills[at];
            EXPECT_TRUE(outcome != "untrue" && outcome != "unexplained") << way.name << ", " << kills[at] << outcome;
            ++outcomes[outcome];
        }
        EXPECT_LT(outcomes["not killed"], kills.size() / step / 2) << way.name;
        std::cout << way.name << ": " << testing::PrintToString(outcomes) << '\n';
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
