// The tool as a person calls it from a shell, against a daemon of the test's own: what it asks for, its exit statuses
// and what it writes where.
#include <gtest/gtest.h>

#include <filesystem>

#include "fake_daemon.h"
#include "run_tool.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

/// @param err  a part of what it writes to standard error; empty: nothing at all
void ExpectTold(const std::string& words, const Answer& answer, int status, const std::string& out,
                const std::string& err) {
    FakeDaemon daemon({answer});
    const Finished run = RunTool("--socket " + daemon.socketPath + " " + words);
    EXPECT_EQ(run.status, status) << words << run.err;
    EXPECT_EQ(run.out, out) << words;
    EXPECT_TRUE(err.empty() ? run.err.empty() : run.err.find(err) != run.err.npos) << words << run.err;
    EXPECT_EQ(daemon.Requests().size(), status == 2 ? 0U : 1U) << words;
}

TEST(Orvanectl, TellsByStatusAndText) {
    ExpectTold("exists /a", {ReplyBytes(1, 0)}, 0, "", "");
    ExpectTold("exists /a", {ReplyBytes(0, 0)}, 1, "", "");
    ExpectTold("exists /a", {ReplyBytes(1, 0, {"x"})}, 4, "", "malformed reply");
    ExpectTold("is-dir /a", {ReplyBytes(-1, ENOENT)}, 1, "",
               "orvanectl: is-dir /a: ENOENT (No such file or directory)\n");
    ExpectTold("ls /a", {ReplyBytes(0, 0, {"sub:1/x:y:0", "z:0"})}, 0, "sub/\nx:y\nz\n", "");
    ExpectTold("ls /a", {ReplyBytes(0, 0)}, 0, "", "");
    ExpectTold("ls /a", {ReplyBytes(-1, ENOTDIR)}, 1, "", "ENOTDIR");
    ExpectTold("existing-path /a/b", {ReplyBytes(0, 0, {"/a/b"})}, 0, "/a/b\n", "");
    ExpectTold("existing-path /a/b", {ReplyBytes(0, 0, {"/a", "/b"})}, 4, "", "malformed reply");
    ExpectTold("existing-path /a/b", {ReplyBytes(0, 0)}, 4, "", "malformed reply");
    ExpectTold("du /a", {ReplyBytes(12, 0)}, 0, "12\n", "");
    ExpectTold("du /a", {ReplyBytes(12, EACCES)}, 1, "12\n", "not whole: EACCES");
    ExpectTold("largest /a", {ReplyBytes(-1, ENOENT)}, 1, "", "ENOENT");
    ExpectTold("move /a /b", {ReplyBytes(0, EXDEV)}, 0, "", "");
    ExpectTold("move /a /b", {ReplyBytes(0, EINVAL)}, 0, "", "may be left out: EINVAL");
    ExpectTold("rm /./", {}, 2, "", "cannot be meant");
    ExpectTold("move /a /b", {ReplyBytes(-1, EACCES)}, 1, "", "move /a -> /b: EACCES (Permission denied)\n");
    ExpectTold("chmod 7 /a", {ReplyBytes(-1, 0)}, 1, "", "no error number");
    ExpectTold("copy /a /b", {ReplyBytes(-2, 0)}, 3, "", "source does not exist");
    ExpectTold("mkdir /a --timeout 1", {""}, 4, "", "timed out");
    ExpectTold("rm /a", {"", true}, 4, "", "closed the connection");
    ExpectTold("exists /a/../b", {}, 2, "", "PATH: /a/../b: the daemon takes no path with \"../\"");
    ExpectTold("chown root:" + std::string(36, 'g') + " /a", {}, 2, "", "group is longer than 35 bytes");
    ExpectTold("rm ''", {}, 2, "", "empty path");
    ExpectTold("chown root /a", {}, 2, "", "USER:GROUP");
    ExpectTold("chmod u+x /a", {}, 2, "", "octal");
    ExpectTold("chmod 000 /a", {}, 2, "", "mode of 0");
    ExpectTold("chmod -- -755 /a", {}, 2, "", "-755: the daemon takes no mode with \"-\" in it");
    ExpectTold("move /a " + std::string(4096, 'n'), {}, 2, "", "longer than 4095 bytes: ");
    ExpectTold("du -h /a", {ReplyBytes(35840, 0)}, 0, "35M\n", "");
    ExpectTold("sing", {}, 2, "", "sing");
    ExpectTold("", {}, 2, "", "sub-command is required");
}

TEST(Orvanectl, TellsWhatToDoNext) {
    ScratchTree scratch;
    const std::pair<std::string, std::string> rows[] = {
        {"--socket /nowhere exists /a", "/nowhere: No such file or directory\nhint: the daemon is not running: start"},
        {"--socket /no/where status", "; it needs the directory /no\n"},
        {"--socket " + scratch.File("stale") + " exists /a", "hint: nobody listens on the socket any more: start"},
        {"mvoe /a /b", "did you mean \"move\"?\nUsage: orvanectl "},
        {"--json status", "orvanectl: --json stands behind the sub-command\n"},
        {"rm --what /a", "\nRun orvanectl rm --help for"},
        {"rm", "PATH is required\nUsage: orvanectl rm [OPTIONS] PATH\n"},
    };
    for (const auto& [words, told] : rows) {
        const Finished run = RunTool(words);
        EXPECT_EQ(run.status, words.starts_with("--socket") ? 4 : 2) << words;
        EXPECT_NE(run.err.find(told), run.err.npos) << words << run.err;
    }
}

/// @param part  of the one line that the tool prints
void ExpectJson(const std::string& words, const Answer& answer, int status, const std::string& part) {
    FakeDaemon daemon({answer});
    const Finished run = RunTool("--socket " + daemon.socketPath + " " + words + " --json");
    EXPECT_EQ(run.status, status) << words << run.err;
    EXPECT_NE(run.out.find(part), run.out.npos) << words << run.out;
    EXPECT_EQ(run.out.find('\n'), run.out.size() - 1) << words << run.out;
}

TEST(Orvanectl, PrintsOneJsonObjectWhateverHappens) {
    ExpectJson("is-dir /a", {ReplyBytes(0, 0)}, 1,
               R"("path":"/a","ok":true,"result":0,"errno":0,"error":null,"answer":f)");
    ExpectJson("move /a /b", {ReplyBytes(-1, EACCES)}, 1,
               R"("/b","ok":false,"result":-1,"errno":13,"error":"EACCES",)");
    ExpectJson("ls /a", {ReplyBytes(0, 0, {"x\xff:1"})}, 0, R"([{"name":"x�","name_hex":"78ff","directory":true}])");
    ExpectJson("du -h /a", {ReplyBytes(12, EIO)}, 1, R"("kilobytes":12,"whole":false,"message":"the figure is not)");
    ExpectJson("rm /a", {"", true}, 4, R"("ok":false,"result":null,"errno":104,"error":"ECONNRESET")");
    ExpectJson("rm /a/../b", {}, 2, R"({"command":"rm","ok":false,"result":null,"errno":22,"error":"EINVAL")");
    ExpectJson("mvoe", {}, 2, R"({"command":null,"ok":false)");
}

std::string SentFor(const std::string& words) {
    FakeDaemon daemon;
    static_cast<void>(RunTool("--socket " + daemon.socketPath + " " + words));  // no answer suits all commands
    return daemon.Requests().at(0);
}

TEST(Orvanectl, EveryCommandHasItsNumberAndFields) {
    const std::string here = std::filesystem::current_path();
    EXPECT_EQ(SentFor("exists /a"), "0|/a|||||0");
    EXPECT_EQ(SentFor("is-dir /a"), "1|/a|||||0");
    EXPECT_EQ(SentFor("ls /a"), "2|/a|||||0");
    EXPECT_EQ(SentFor("prepare-dir u:g 0771 /a"), "3|/a||u|g|0771|1");
    EXPECT_EQ(SentFor("move-children /a /b"), "4|/a|/b||||0");
    EXPECT_EQ(SentFor("move /a /b"), "5|/a|/b||||0");
    EXPECT_EQ(SentFor("copy-children /a /b"), "6|/a|/b||||0");
    EXPECT_EQ(SentFor("copy /a /b"), "7|/a|/b||||0");
    EXPECT_EQ(SentFor("rm move"), "8|" + here + "/move|||||0");
    EXPECT_EQ(SentFor("restorecon -r /a"), "9|/a|||||2");
    EXPECT_EQ(SentFor("restorecon --from-parent /a"), "10|/a|||||0");
    EXPECT_EQ(SentFor("rm --keep-going /a"), "11|/a|||||0");
    EXPECT_EQ(SentFor("mkdir -r /a"), "12|/a|||||2");
    EXPECT_EQ(SentFor("chown -r u:5 a/"), "13|" + here + "/a/||u|5||2");
    EXPECT_EQ(SentFor("chmod 0750 /a"), "14|/a||||0750|1");
    EXPECT_EQ(SentFor("existing-path /a"), "15|/a|||||0");
    EXPECT_EQ(SentFor("du /a"), "16|/a|||||0");
    EXPECT_EQ(SentFor("largest /a"), "17|/a|||||0");
    EXPECT_EQ(SentFor("copy-comb u:g 640 /a -- -b"), "18|/a|" + here + "/-b|u|g|640|0");
}

TEST(Orvanectl, ListsInColumnsOnATerminal) {
    FakeDaemon daemon({{ReplyBytes(0, 0, {"file:0/long name here:0/dir:1", "\x1b[2J:0", "a:0"})}});
    const Finished run = RunTool("--socket " + daemon.socketPath + " ls /a' /dev/null",
                                 "NO_COLOR=1 LC_ALL=C.UTF-8 script -qec 'stty cols 26;");
    EXPECT_EQ(run.out, "\\x1b[2J  file\r\na        long name here\r\ndir/\r\n") << run.err;
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
