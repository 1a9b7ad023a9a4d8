// The tool's own questions to the real daemon: progress, dry runs, status. They must leave no records.
#include <filesystem>
#include <fstream>
#include <regex>
#include <tuple>

#include "daemon_test.h"
#include "fake_daemon.h"
#include "run_tool.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

struct OrvanectlDaemonTest : DaemonTest {
    /// Runs the tool in the tree on /data. Starts the daemon if the test has not.
    Finished Run(const std::string& words, const std::string& prefix = "") {
        if (!daemon) {
            Start();
        }
        return RunTool(Expand(words), Expand("cd @; " + prefix));
    }

    /// The number of records that the tool's questions and requests leave.
    std::size_t RecordsOf(const std::string& words) {
        ClearRecords();
        const Finished run = Run(words);
        EXPECT_TRUE(run.status == 0 || !run.err.empty()) << words;
        return Records().size();
    }
};

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != text.npos;
}

TEST_F(OrvanectlDaemonTest, QuestionsLeaveNoRecords) {
    ASSERT_TRUE(Shell("mkdir into src; touch file; echo content >src/file; ln -s nowhere into/link; ln -s loop loop"));
    for (const std::string& to : Strings{"absent", "into", "file/", "loop", "file/x", "into/link", "into/link/",
                                         "loop/x", "gone/x", "into/..", std::string(256, 'n')}) {
        for (const std::string& words : {"move src " + to, "move " + to + " src", "move-children " + to + " src",
                                         "move-children src " + to, "copy-comb 0:0 640 src " + to, "rm " + to}) {
            EXPECT_EQ(RecordsOf(words + " --dry-run"), 0U) << words;
        }
        const std::size_t own = RecordsOf("copy src " + to + " --progress=never");
        EXPECT_EQ(RecordsOf("copy src " + to + " --progress=always"), own) << to;
        EXPECT_EQ(ReadFile(tree->Path("src/file")), "content\n");
    }
}

TEST_F(OrvanectlDaemonTest, DryRunCountsWhatWouldBeTouched) {
    ASSERT_TRUE(Shell("mkdir -p src/sub into/sub; echo x | tee src/sub/file src/sub/new into/sub/file"));
    const std::string both = " src into --json --dry-run";
    EXPECT_TRUE(Has(Run("move" + both).out, R"("directories":2,"others":2,"kilobytes":16,"replaced":1,"would_)"));
    EXPECT_TRUE(Has(Run("move-children" + both).out, R"("directories":1,"others":2,"kilobytes":)"));
    EXPECT_EQ(Run("move /absent /y --dry-run").status, 3);
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
        EXPECT_EQ(Run(words + " --dry-run").out, Expand(text));
    }
}

TEST_F(OrvanectlDaemonTest, SaysWhatWouldBeLostBeforeItIs) {
    ASSERT_TRUE(
        Shell("mkdir into src; echo content >src/file; ln -s file src/link; mkfifo src/pipe; ln -s nowhere dangling"));
    const std::string lost = "1 symbolic link and 1 special file would be lost: @/src/";
    const std::string comb = "orvanectl: copy-comb @/src -> ";
    const std::string none = "the destination @/absent is not an existing directory";
    const std::string removed = ". The daemon would still remove the source; --force sends it anyway\n";
    const std::tuple<std::string, int, std::string> rows[] = {
        {"move src ~/lost --strict", 1, "orvanectl: move @/src -> ~/lost: not sent: " + lost},
        {"move-children src into", 0, ""},  // a rename keeps links
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
        {"move src ~/lost", 0, "orvanectl: move @/src -> ~/lost: warning: " + lost},
    };
    for (const auto& [words, status, text] : rows) {
        const Finished run = Run(words);
        const std::string err = Expand(text);
        EXPECT_EQ(run.status, status) << words;
        EXPECT_EQ(run.err.substr(0, err.size()), err) << words << "\n" << run.err;
    }
    EXPECT_EQ(ReadFile(second->Path("lost/file")), "content\n");
}

TEST_F(OrvanectlDaemonTest, DryRunListsEachObject) {
    ASSERT_TRUE(Shell("mkdir -p src/sub into/sub; touch src/old src/new src/sub/file into/old; ln -s old src/link"));
    const auto rows = [&](const std::string& top, const std::string& link, const std::string& old,
                          const std::string& sub, const std::string& each) {
        return Expand(top + "@/src/\n" + link + "@/src/link\n" + each + "@/src/new\n" + old + "@/src/old\n" + sub +
                      "@/src/sub/\n" + each + "@/src/sub/file\n");
    };
    const std::string create = "create   ", lose = "lose     ", remove = "remove   ";
    const std::pair<std::string, std::string> expected[] = {
        {"copy src into", rows("merge    ", "skip     ", "replace  ", "merge    ", create)},
        {"move src ~/listed", rows(create, lose, create, create, create)},
        {"move src renamed", rows(create, create, create, create, create)},
        {"rm src", rows(remove, remove, remove, remove, remove)},
    };
    for (const auto& [words, list] : expected) {
        EXPECT_EQ(Run(words + " --dry-run -i | grep ' /' | grep -v would | LC_ALL=C sort -b -k 2").out, list) << words;
    }
    EXPECT_TRUE(Has(Run("rm into/old --dry-run -i --json").out,
                    Expand(R"("objects":[{"action":"remove","path":"@/into/old","directory":false}])")));
    EXPECT_EQ(Run("rm src -i").status, 2);
}

TEST_F(OrvanectlDaemonTest, ChecksASmallFileSystemWithASpaceInItsPath) {
    const std::string small = tree->Dir("has/a space");
    if (!Shell("touch file; mount -t tmpfs -o nr_inodes=2 small 'has/a space'")) {
        GTEST_SKIP() << "needs privilege: a mount";
    }
    const Finished fits = Run("copy-comb 0:0 640 file 'has/a space/file' --dry-run");
    const Finished mounted = Run("rm has --dry-run");
    const Finished used = Run("copy file 'has/a space/file'");
    const Finished lacks = Run("copy-comb 0:0 640 file 'has/a space/other' --dry-run");
    EXPECT_TRUE(Shell("umount -l 'has/a space'"));
    EXPECT_EQ(fits.status, 0) << fits.err;
    EXPECT_TRUE(Has(mounted.out, "\n" + small + " is a mount point: the files mounted there are affected too\n"));
    EXPECT_EQ(used.status, 0) << used.err;
    EXPECT_TRUE(Has(lacks.err, "the source needs 1 inode, and only 0 are free at " + small));
}

TEST_F(OrvanectlDaemonTest, AFailureComesWithItsCauseAndItsRecords) {
    tree->MakeImmutable(tree->File("fixed"));
    EXPECT_FALSE(Has(Run("move absent/x y").err, "hint: ")) << "it leaves no record";
    const Finished run = Run("move fixed new");
    EXPECT_EQ(run.err.substr(0, run.err.find("hint: ")),
              Expand("orvanectl: move @/fixed -> @/new: EPERM (Operation not permitted)\n"
                     "likely cause: the source @/fixed has the immutable flag\n"));
    const std::string hint = run.err.substr(run.err.find("orvanectl records"));
    const Finished shown = RunTool(hint.substr(10, hint.find(" shows") - 10));
    EXPECT_TRUE(Has(shown.out, "likely cause: the source ")) << hint << shown.out << shown.err;
    EXPECT_TRUE(Has(Run("chown nobody7:0 fixed").err, "\nlikely cause: there is no user nobody7\nhint: "));
    EXPECT_TRUE(Has(Run("move fixed new --json").out, R"("records":1,"cause":"immutable","cause_path":"/)"));
}

/// The records of one request, among older ones and those of others.
TEST_F(OrvanectlDaemonTest, CountsTheRecordsOfARequest) {
    const auto append = [](const Strings& sources) {
        for (const std::string& src : sources) {
            std::ofstream(RECORD_FILE_AB, std::ios::app)
                << "type:REMOVE,src:" + src + ",dst:,user:,group:,perm:,recurseOpt:,errno:5,times:20991231235959;";
        }
    };
    const std::string end = "hint: orvanectl records -v --since '#' --path /a shows the record";
    const std::vector<std::pair<Strings, std::string>> rows{
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
    ASSERT_TRUE(Shell("mkdir src; head -c 100000 /dev/zero | tr '\\0' x | tee src/0 >src/1"));
    EXPECT_EQ(Run("move src renamed --progress=always && mv renamed src").status, 0);
    EXPECT_TRUE(Found("HandleCmd. cmd: 16,").empty()) << "a tree that is only renamed was measured";
    const std::string line = ": [0-9]+K? of [0-9]+K, [0-9]+ %(, [0-9]+K/s, 0:[0-9]{2} left)?";
    const std::string progress =
        "(\rcopy" + line + ")+\r +\rcopied @/src -> ~/copied: 204K in [0-9.]+ s \\([0-9]+K/s\\)\r\n";
    const Finished whole = Run("copy @/src ~/copied' /dev/null", "script -qec '");
    EXPECT_TRUE(std::regex_match(whole.out, std::regex(Expand(progress)))) << whole.out;
    ASSERT_TRUE(Shell("cp src/0 src/2; cp src/1 src/3"));  // so that the move takes longer than a second
    const std::string interrupted = "\n)*orvanectl: interrupted; the daemon finishes what it has begun: move ";
    const Finished cut = Run("move --progress=always @/src ~/moved", "timeout --foreground -s INT 1");
    EXPECT_TRUE(std::regex_search(cut.err, std::regex("^(move" + line + interrupted))) << cut.err;
    EXPECT_TRUE(Await(Expand("MoveByCopy @/src")));
    EXPECT_EQ(Records(), Strings());
}

/// What varies is masked: times and the version.
std::string Masked(const std::string& status) {
    const std::regex version("(orvanectl +|version\":\")[0-9.]+");
    const std::regex times("(within |seconds\":)[0-9.]+|[0-9]{4}(-[0-9]{2}){2}[ T]([0-9]{2}:){2}[0-9]{2}");
    return std::regex_replace(std::regex_replace(status, version, "$1V"), times, "$1#");
}

TEST_F(OrvanectlDaemonTest, StatusShowsTheDaemonAndItsRecords) {
    tree->File("file");
    ASSERT_EQ(RecordsOf("mkdir file/x"), 1U);
    const std::string bytes = std::to_string(2 * fs::file_size(RECORD_FILE_AB));
    ASSERT_TRUE(
        tree->Shell("cd /data/zelto/update/migrate; cp file_migrate_ab.txt file_migrate_ab_20261121101530.txt; "
                    "mkdir file_migrate_fail_kmsg; echo >file_migrate_fail_kmsg/MOVE@20261121101530; "
                    "rm -r /data/update/migrate"));
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
