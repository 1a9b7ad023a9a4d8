// The tool's own questions to the real daemon: progress, dry runs, status. They must leave no records.
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <tuple>

#include "daemon_test.h"
#include "fake_daemon.h"
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
    EXPECT_EQ(RunTool("move /absent /y --dry-run").status, 3);
    const std::string size = ": 2 directories, 2 other objects, 16K\n";
    const std::pair<std::string, std::string> rows[] = {
        {"copy @/src @/into", "would have copied @/src -> @/into" + size +
                                  "1 object in @/into would be replaced\n"
                                  "links and special files would not be copied\n"},
        {"move @/src ~/into", "would have moved @/src -> ~/into" + size +
                                  "nothing would be replaced: ~/into does not exist\n"
                                  "no links or special files would be lost\n"},
        {"rm @/src/", "would have removed @/src/" + size},
    };
    for (const auto& [words, text] : rows) {
        EXPECT_EQ(RunTool(Expand(words) + " --dry-run").out, Expand(text));
    }
}

/// Runs the tool in the scratch tree.
Finished RunIn(const ScratchTree& tree, const std::string& words) {
    return RunTool(words, "cd " + tree.Path("") + " &&");
}

TEST_F(OrvanectlDaemonTest, SaysWhatWouldBeLostBeforeItIs) {
    Start();
    tree->File("src/file");
    tree->Link("src/link", "file");
    tree->Link("dangling", "nowhere");
    const std::string other = std::getenv("FILE_MIGRATE_SECOND_FS") + std::string("/lost");
    const std::string lost = "1 symbolic link would be lost: @/src/link\n";
    const std::string comb = "orvanectl: copy-comb @/src -> ";
    const std::string none = "the destination @/absent is not an existing directory";
    const std::string removed = ". The daemon would still remove the source; --force sends it anyway\n";
    const std::tuple<std::string, int, std::string> rows[] = {
        {"move src " + other + " --strict", 1, "orvanectl: move @/src -> " + other + ": not sent: " + lost},
        {"move-children src " + tree->Dir("into"), 0, ""},  // a rename keeps links
        {"move-children into src", 0, ""},
        {"copy-comb 0:0 640 src absent", 1, comb + "@/absent: not sent: " + none + removed},
        {"copy-comb 0:0 640 src src", 1,
         comb + "@/src: not sent: the destination @/src lies inside the source" + removed},
        {"copy-comb 0:0 640 src absent --dry-run", 1,
         comb + "@/absent: it would fail: " + none + "; @/src would be removed and its files lost\n"},
        {"move src src/in --dry-run", 1,
         "orvanectl: move @/src -> @/src/in: it would fail: @/src/in lies inside the source\n"},
        {"copy src src/file --dry-run", 1,
         "orvanectl: copy @/src -> @/src/file: it would fail: @/src/file lies inside the source\n"},
        {"copy src absent/b --dry-run", 1,
         "orvanectl: copy @/src -> @/absent/b: it would fail: the parent directory of @/absent/b does not exist\n"},
        {"copy src src --dry-run", 1, "orvanectl: copy @/src -> @/src: it would fail: the source is the destination\n"},
        {"move into src --dry-run", 1, "orvanectl: move @/into -> @/src: it would fail: @/src is not empty\n"},
        {"move src/file into --dry-run", 1,
         "orvanectl: move @/src/file -> @/into: it would fail: @/into is a directory and the source is not\n"},
        {"move src into --dry-run", 0, ""},  // into is empty
        {"mkdir src/file", 1, "orvanectl: mkdir @/src/file: the path exists and is not a directory\n"},
        {"move dangling x", 3, "orvanectl: move @/dangling -> @/x: the source is a link that leads nowhere\n"},
        {"move src " + other, 0, "orvanectl: move @/src -> " + other + ": warning: " + lost},
    };
    for (const auto& [words, status, text] : rows) {
        const Finished run = RunIn(*tree, words);
        const std::string err = Expand(text);
        EXPECT_EQ(run.status, status) << words;
        EXPECT_EQ(run.err.substr(0, err.size()), err) << words << "\n" << run.err;
    }
    EXPECT_EQ(ReadFile(other + "/file"), "content");
    std::filesystem::remove_all(other);
}

TEST_F(OrvanectlDaemonTest, DryRunListsEachObject) {
    Start();
    tree->File("src/old");
    tree->File("src/new");
    tree->File("src/sub/file");
    tree->Link("src/link", "old");
    tree->File("into/old");
    tree->Dir("into/sub");
    const std::string src = tree->Path("src"), other = std::getenv("FILE_MIGRATE_SECOND_FS") + std::string("/listed");
    const auto rows = [&](const std::string& top, const std::string& link, const std::string& old,
                          const std::string& sub, const std::string& each) {
        return top + src + "/\n" + link + src + "/link\n" + each + src + "/new\n" + old + src + "/old\n" + sub + src +
               "/sub/\n" + each + src + "/sub/file\n";
    };
    const std::string create = "create   ", lose = "lose     ", remove = "remove   ";
    const std::pair<std::string, std::string> expected[] = {
        {"copy src into", rows("merge    ", "skip     ", "replace  ", "merge    ", create)},
        {"move src " + other, rows(create, lose, create, create, create)},
        {"move src renamed", rows(create, create, create, create, create)},
        {"rm src", rows(remove, remove, remove, remove, remove)},
    };
    for (const auto& [words, list] : expected) {
        EXPECT_EQ(RunIn(*tree, words + " --dry-run -i | grep ' /' | grep -v would | LC_ALL=C sort -b -k 2").out, list)
            << words;
    }
    EXPECT_TRUE(Has(RunIn(*tree, "rm into/old --dry-run -i --json").out,
                    R"("objects":[{"action":"remove","path":")" + tree->Path("into/old") + R"(","directory":false}])"));
    EXPECT_EQ(RunIn(*tree, "rm src -i").status, 2);
}

TEST_F(OrvanectlDaemonTest, ChecksASmallFileSystemWithASpaceInItsPath) {
    Start();
    const std::string small = tree->Dir("has/a space"), file = tree->File("file");
    if (mount("small", small.c_str(), "tmpfs", 0, "nr_inodes=2") != 0) {
        GTEST_SKIP() << "needs privilege: a mount";
    }
    const Finished fits = RunIn(*tree, "copy-comb 0:0 640 file 'has/a space/file' --dry-run");
    const Finished mounted = RunIn(*tree, "rm has --dry-run");
    const Finished used = RunIn(*tree, "copy file 'has/a space/file'");
    const Finished lacks = RunIn(*tree, "copy-comb 0:0 640 file 'has/a space/other' --dry-run");
    EXPECT_EQ(umount2(small.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(fits.status, 0) << fits.err;
    EXPECT_TRUE(Has(mounted.out, "\n" + small + " is a mount point: the files mounted there are affected too\n"));
    EXPECT_EQ(used.status, 0) << used.err;
    EXPECT_TRUE(Has(lacks.err, "the source needs 1 inode, and only 0 are free at " + small));
}

TEST_F(OrvanectlDaemonTest, AFailureComesWithItsCauseAndItsRecords) {
    Start();
    tree->MakeImmutable(tree->File("fixed"));
    EXPECT_EQ(RunIn(*tree, "move absent/x y").err.find("hint: "), std::string::npos) << "it leaves no record";
    const Finished run = RunIn(*tree, "move fixed new");
    EXPECT_EQ(run.err.substr(0, run.err.find("hint: ")),
              Expand("orvanectl: move @/fixed -> @/new: EPERM (Operation not permitted)\n"
                     "likely cause: the source @/fixed has the immutable flag\n"));
    const std::string hint = run.err.substr(run.err.find("orvanectl records"));
    const Finished shown = RunTool(hint.substr(10, hint.find(" shows") - 10));
    EXPECT_TRUE(Has(shown.out, "likely cause: the source ")) << hint << shown.out << shown.err;
    EXPECT_TRUE(Has(RunIn(*tree, "chown nobody7:0 fixed").err, "\nlikely cause: there is no user nobody7\nhint: "));
    EXPECT_TRUE(Has(RunIn(*tree, "move fixed new --json").out, R"("records":1,"cause":"immutable","cause_path":"/)"));
}

/// The records of one request, among older ones and those of others.
TEST_F(OrvanectlDaemonTest, CountsTheRecordsOfARequest) {
    const auto append = [](const std::vector<std::string>& sources) {
        for (const std::string& src : sources) {
            std::ofstream(RECORD_FILE_AB, std::ios::app)
                << "type:REMOVE,src:" + src + ",dst:,user:,group:,perm:,recurseOpt:,errno:5,times:20991231235959;";
        }
    };
    const std::string end = "hint: orvanectl records -v --since '#' --path /a shows the record";
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{"/other", "/a/x"}, "\n" + end + "\n"}, {{"/a", "/a", "/a", "/a/x", "/a"}, " (x3)\n" + end + "s\n"}};
    append({"/a/old"});
    for (const auto& [sources, text] : rows) {
        FakeDaemon fake({{.bytes = ReplyBytes(-1, EIO), .act = [&, wanted = sources] { append(wanted); }}});
        const Finished run = RunTool("--socket " + fake.socketPath + " rm /a");
        EXPECT_EQ(std::regex_replace(run.err, std::regex("'[^']*'"), "'#'"),
                  "orvanectl: rm /a: EIO (Input/output error)\n"
                  "likely cause: the disk or its backing store failed; see the kernel log" +
                      text);
    }
}

TEST_F(OrvanectlDaemonTest, ProgressGrowsAndCtrlCLeavesTheDaemonAtWork) {
    Start({{}, {"strace", "-fqqo/dev/null", "-etrace=pwrite64", "-einject=pwrite64:delay_enter=200000"}});
    for (int i = 0; i < 4; ++i) {
        tree->File("src/" + std::to_string(i), std::string(100'000, 'x'));
    }
    EXPECT_EQ(RunIn(*tree, "move src renamed --progress=always && mv renamed src").status, 0);
    EXPECT_TRUE(Found("HandleCmd. cmd: 16,").empty()) << "a tree that is only renamed was measured";
    const ScratchTree other(ScratchTree::On::SecondFs);
    const std::string src = tree->Path("src"), copied = src + " -> " + other.Path("copied");
    const std::string line = ": [0-9]+K? of 404K, [0-9]+ %(, [0-9]+K/s, 0:[0-9]{2} left)?";
    const Finished whole = RunTool("copy " + src + " " + other.Path("copied") + "' /dev/null", "script -qec '");
    EXPECT_TRUE(std::regex_match(whole.out, std::regex("(\rcopy" + line + ")+\r +\rcopied " + copied +
                                                       ": 404K in [0-9.]+ s \\([0-9]+K/s\\)\r\n")))
        << whole.out;
    const Finished cut =
        RunTool("move --progress=always " + src + " " + other.Path("moved"), "timeout --foreground -s INT 1");
    EXPECT_TRUE(std::regex_search(cut.err, std::regex("^(move" + line +
                                                      "\n)*orvanectl: interrupted; the daemon "
                                                      "finishes what it has begun: move ")))
        << cut.err;
    EXPECT_TRUE(daemon->WaitForLog("MoveByCopy " + src));
    EXPECT_EQ(Records(), std::vector<std::string>());
}

/// What varies is masked: times and the version.
std::string Masked(const std::string& status) {
    const std::regex version("(orvanectl +|version\":\")[0-9.]+");
    const std::regex times("(within |seconds\":)[0-9.]+|[0-9]{4}(-[0-9]{2}){2}[ T]([0-9]{2}:){2}[0-9]{2}");
    return std::regex_replace(std::regex_replace(status, version, "$1V"), times, "$1#");
}

TEST_F(OrvanectlDaemonTest, StatusShowsTheDaemonAndItsRecords) {
    Start();
    ASSERT_EQ(RecordsOf("mkdir " + tree->File("file") + "/x"), 1U);
    const std::string zelto = "/data/zelto/update/migrate";
    const std::string bytes = std::to_string(2 * std::filesystem::file_size(RECORD_FILE_AB));
    std::filesystem::copy_file(RECORD_FILE_AB, zelto + "/file_migrate_ab_20261121101530.txt");
    std::filesystem::create_directories(DUMP_DIRECTORY);
    std::ofstream(DUMP_DIRECTORY + std::string("/MOVE@20261121101530")) << "denied\n";
    std::filesystem::remove_all("/data/update/migrate");
    const std::string answers =
        "orvanectl     V\n"
        "daemon        answers within # ms\n"
        "socket        /dev/unix/socket/file_migrate_orvane (root:root 0600)\n";
    const std::string records = Expand(
        "records       /data/update/migrate/file_migrate_bi.txt: no directory: records are lost until you run \"mkdir "
        "-p /data/update/migrate\"\n"
        "records       /data/zelto/update/migrate/file_migrate_bi.txt: no records\n"
        "records       /data/zelto/update/migrate/file_migrate_ab.txt: 1.0K with 1 rotated\n"
        "last record   #  ENOTDIR    create directory  @/file/x mode=700\n"
        "dumps         1\n");
    EXPECT_EQ(Masked(RunTool("status").out), answers + records);
    const Finished gone = RunTool("status --socket /nowhere");
    EXPECT_EQ(Masked(gone.out), "orvanectl     V\ndaemon        does not answer\nsocket        /nowhere\n" + records);
    EXPECT_EQ(gone.status, 4);
    EXPECT_EQ(
        Masked(RunTool("status --json").out),
        Expand(R"({"command":"status","ok":true,"result":null,"errno":0,"error":null,"version":"V","reachable":true,)"
               R"("milliseconds":#,"socket":"/dev/unix/socket/file_migrate_orvane","socket_owner":"root:root 0600",)"
               R"("records":[{"file":"/data/update/migrate/file_migrate_bi.txt","bytes":0,"rotated":0,"errno":2},)"
               R"({"file":"/data/zelto/update/migrate/file_migrate_bi.txt","bytes":0,"rotated":0,"errno":2},)"
               R"({"file":"/data/zelto/update/migrate/file_migrate_ab.txt","bytes":)" +
               bytes +
               R"(,"rotated":1,"errno":0}],"last_record":{"time":"#","type":"MKDIR","failure":"create directory",)"
               R"("errno":20,"error":"ENOTDIR","src":"@/file/x","dst":"","user":"","group":"","perm":"700",)"
               R"("recurseOpt":"","refused":null},"dumps":1,"message":"","hint":""})") +
            "\n");
    EXPECT_TRUE(Has(RunTool("status --json --socket /nowhere").out,
                    R"("ok":false,"result":null,"errno":2,"error":"ENOENT","version":)"));
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
