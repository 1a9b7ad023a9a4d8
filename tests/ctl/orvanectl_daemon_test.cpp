// The tool's own questions to the real daemon: progress, dry runs, status. They must leave no records.
#include "daemon_test.h"
#include "run_tool.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using OrvanectlDaemonTest = DaemonTest;

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != text.npos;
}

std::size_t RecordsOf(const std::string& words) {
    ClearRecords();
    const Finished run = RunTool(words);
    EXPECT_TRUE(run.status == 0 || !run.err.empty()) << words;
    return Records().size();
}

TEST_F(OrvanectlDaemonTest, QuestionsLeaveNoRecords) {
    Start();
    tree->File("file");
    tree->Link("into/link", "nowhere");
    tree->Link("loop", "loop");
    const std::string from = tree->Dir("src") + " ", file = tree->File("src/file"), longName(256, 'n');
    for (const std::string& name : std::vector<std::string>{"absent", "into", "file/", "loop", "file/x", "into/link",
                                                            "into/link/", "loop/x", "gone/x", "into/..", longName}) {
        const std::string to = tree->Path(name) + " ";
        for (const std::string& words : {"move " + from + to, "move " + to + from, "move-children " + to + from,
                                         "move-children " + from + to, "copy-comb 0:0 640 " + from + to, "rm " + to}) {
            EXPECT_EQ(RecordsOf(words + "--dry-run"), 0U) << words;
        }
        const std::size_t own = RecordsOf("copy " + from + to + "--progress=never");
        EXPECT_EQ(RecordsOf("copy " + from + to + "--progress=always"), own) << to;
        EXPECT_EQ(ReadFile(file), "content");
    }
}

TEST_F(OrvanectlDaemonTest, DryRunCountsWhatWouldBeTouched) {
    Start();
    const std::string src = tree->Dir("src"), both = src + " " + tree->Dir("into") + " --json --dry-run";
    for (const char* name : {"src/sub/file", "src/sub/new", "into/sub/file"}) {
        tree->File(name);
    }
    EXPECT_TRUE(Has(RunTool("move " + both).out, R"("directories":2,"others":2,"kilobytes":16,"replaced":1,"would_)"));
    EXPECT_TRUE(Has(RunTool("move-children " + both).out, R"("directories":1,"others":2,"kilobytes":)"));
    EXPECT_TRUE(RunTool("copy-comb 0:0 640 " + src + " /no/x --dry-run").out.starts_with("it would fail: "));
    EXPECT_EQ(RunTool("move /absent /y --dry-run").status, 3);
}

TEST_F(OrvanectlDaemonTest, ProgressGrowsAndCtrlCLeavesTheDaemonAtWork) {
    Start({{}, {"strace", "-fqqo/dev/null", "-etrace=pwrite64", "-einject=pwrite64:delay_enter=200000"}});
    for (int i = 0; i < 8; ++i) {
        tree->File("src/" + std::to_string(i), std::string(100'000, 'x'));
    }
    const ScratchTree other(ScratchTree::On::SecondFs);
    const std::string src = tree->Path("src"), copied = src + " -> " + other.Path("copied");
    const Finished whole = RunTool("copy --progress=always " + src + " " + other.Path("copied"));
    EXPECT_TRUE(Has(whole.err, " %, ") && Has(whole.err, "\ncopied " + copied + ": 8")) << whole.err;
    const Finished cut = RunTool("move " + src + " " + other.Path("moved"), "timeout --foreground -s INT 1");
    EXPECT_TRUE(cut.err.starts_with("orvanectl: interrupted; the daemon finishes what it has begun: move ")) << cut.err;
    EXPECT_TRUE(daemon->WaitForLog("MoveByCopy " + src));
    EXPECT_EQ(Records(), std::vector<std::string>());
}

TEST_F(OrvanectlDaemonTest, StatusShowsTheLastRecord) {
    Start();
    ASSERT_EQ(RecordsOf("mkdir " + tree->File("file") + "/x"), 1U);
    const std::string status = RunTool("status --json").out;
    EXPECT_TRUE(Has(status, R"("reachable":true,"milliseconds":)") && Has(status, R"("type":"MKDIR")")) << status;
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
