// The tool called from a shell, against a fake daemon: its requests, exit statuses and output.
#include <gtest/gtest.h>

#include <filesystem>

#include "fake_daemon.h"
#include "run_tool.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

/// @param err  a part of standard error; empty if nothing may be written there
void ExpectRun(const std::string& words, const Answer& answer, int status, const std::string& out,
               const std::string& err) {
    FakeDaemon daemon({answer});
    const Finished run = RunTool("--socket " + daemon.socketPath + " " + words);
    EXPECT_EQ(run.status, status) << words << run.err;
    EXPECT_EQ(run.out, out) << words;
    EXPECT_TRUE(err.empty() ? run.err.empty() : run.err.find(err) != run.err.npos) << words << run.err;
    EXPECT_EQ(daemon.Requests().size(), status == 2 ? 0U : 1U) << words;
}

TEST(Orvanectl, StatusAndText) {
    ExpectRun("exists /a", {ReplyBytes(1, 0)}, 0, "", "");
    ExpectRun("exists /a", {ReplyBytes(0, 0)}, 1, "", "");
    ExpectRun("exists /a", {ReplyBytes(1, 0, {"x"})}, 4, "", "malformed reply");
    ExpectRun("is-dir /a", {ReplyBytes(-1, ENOENT)}, 1, "",
              "orvanectl: is-dir /a: ENOENT (No such file or directory)\n");
    ExpectRun("ls /a", {ReplyBytes(0, 0, {"sub:1/x:y:0", "z:0"})}, 0, "sub/\nx:y\nz\n", "");
    ExpectRun("ls /a", {ReplyBytes(0, 0)}, 0, "", "");
    ExpectRun("ls /a", {ReplyBytes(-1, ENOTDIR)}, 1, "", "ENOTDIR");
    ExpectRun("existing-path /a/b", {ReplyBytes(0, 0, {"/a/b"})}, 0, "/a/b\n", "");
    ExpectRun("existing-path /a/b", {ReplyBytes(0, 0, {"/a", "/b"})}, 4, "", "malformed reply");
    ExpectRun("existing-path /a/b", {ReplyBytes(0, 0)}, 4, "", "malformed reply");
    ExpectRun("du /a", {ReplyBytes(12, 0)}, 0, "12\n", "");
    ExpectRun("du /a", {ReplyBytes(12, EACCES)}, 1, "12\n", "incomplete: EACCES");
    ExpectRun("du /a", {ReplyBytes(0, 0)}, 0, "0\n", "");
    ExpectRun("largest /a", {ReplyBytes(0, 0)}, 0, "0\n", "");
    ExpectRun("largest /a", {ReplyBytes(-1, ENOENT)}, 1, "", "ENOENT");
    ExpectRun("move /a /b", {ReplyBytes(0, EXDEV)}, 0, "", "");
    ExpectRun("move /a /b", {ReplyBytes(0, EINVAL)}, 0, "", "may be left out: EINVAL");
    ExpectRun("rm /./", {}, 2, "", "refusing to work on the root directory");
    ExpectRun("move /a /b", {ReplyBytes(-1, EACCES)}, 1, "", "move /a -> /b: EACCES (Permission denied)\n");
    ExpectRun("chmod 7 /a", {ReplyBytes(-1, 0)}, 1, "", "no error number");
    ExpectRun("copy /a /b", {ReplyBytes(-2, 0)}, 3, "", "source does not exist");
    ExpectRun("mkdir /a --timeout 1", {""}, 4, "", "timed out");
    ExpectRun("rm /a", {"", true}, 4, "", "closed the connection");
    ExpectRun("exists /a/../b", {}, 2, "", "PATH: /a/../b: the daemon refuses paths that contain \"../\"");
    ExpectRun("chown root:" + std::string(36, 'g') + " /a", {}, 2, "", "group is longer than 35 bytes");
    ExpectRun("rm ''", {}, 2, "", "path is empty");
    ExpectRun("chown root /a", {}, 2, "", "USER:GROUP");
    ExpectRun("chown 4294967301:0 /a", {}, 2, "", "the user 4294967301 is larger than 4294967294");
    ExpectRun("chown 0:4294967295 /a", {}, 2, "", "the group 4294967295 is larger than 4294967294");
    ExpectRun("chmod u+x /a", {}, 2, "", "octal");
    ExpectRun("chmod 000 /a", {}, 2, "", "must not be 0");
    ExpectRun("chmod -- -755 /a", {}, 2, "", "-755: the daemon refuses a mode that contains \"-\"");
    ExpectRun("move /a " + std::string(4096, 'n'), {}, 2, "", "longer than 4095 bytes: ");
    ExpectRun("du -h /a", {ReplyBytes(35840, 0)}, 0, "35M\n", "");
    ExpectRun("sing --help", {}, 2, "", "orvanectl: sing: there is no such sub-command");
    ExpectRun("", {}, 2, "", "sub-command is required");
}

TEST(Orvanectl, HintsWhatToDoNext) {
    ScratchTree scratch;
    const std::pair<std::string, std::string> rows[] = {
        {"--socket /nowhere exists /a", "/nowhere: No such file or directory\nhint: the daemon is not running: start"},
        {"--socket /no/where status", "; it needs the directory /no\n"},
        {"--socket " + scratch.File("stale") + " exists /a", "hint: no daemon listens on the socket: start"},
        {"mvoe /a /b", "did you mean \"move\"?\nUsage: orvanectl "},
        {"--json status", "orvanectl: --json must follow the sub-command\n"},
        {"rm --what /a", "\nRun orvanectl rm --help for"},
        {"rm", "PATH is required\nUsage: orvanectl rm [OPTIONS] PATH\n"},
    };
    for (const auto& [words, expected] : rows) {
        const Finished run = RunTool(words);
        EXPECT_EQ(run.status, words.starts_with("--socket") ? 4 : 2) << words;
        EXPECT_NE(run.err.find(expected), run.err.npos) << words << run.err;
    }
}

/// @param part  a part of the line that the tool prints
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
    ExpectJson("ls /a", {ReplyBytes(0, 0, {"x\xff:1"})}, 0,
               R"([{"name":"x\ufffd","name_hex":"78ff","directory":true}])");
    ExpectJson("existing-path /a/b", {ReplyBytes(0, 0, {"/a"})}, 0, R"("existing_path":"/a",)");
    ExpectJson("du -h /a", {ReplyBytes(12, EIO)}, 1, R"("kilobytes":12,"whole":false,"message":"the figure is)");
    ExpectJson("rm /a", {"", true}, 4, R"("ok":false,"result":null,"errno":104,"error":"ECONNRESET")");
    ExpectJson("rm /a/../b", {}, 2, R"({"command":"rm","ok":false,"result":null,"errno":22,"error":"EINVAL")");
    ExpectJson("mvoe", {}, 2, R"({"command":null,"ok":false)");
    for (const std::string form : {"-o json", "-ojson", "--output json", "--output=json"}) {
        const Finished run = RunTool("records --since never " + form);
        EXPECT_EQ(run.out.substr(0, 31), R"({"command":"records","ok":false)") << form << run.err;
    }
}

std::string SentFor(const std::string& words) {
    FakeDaemon daemon;
    static_cast<void>(RunTool("--socket " + daemon.socketPath + " " + words));  // the answer does not fit the command
    return daemon.Requests().at(0);
}

TEST(Orvanectl, EveryCommandHasItsNumberAndFields) {
    const std::string here = fs::current_path();
    const std::pair<const char*, std::string> rows[] = {
        {"exists /a", "0|/a|||||0"},
        {"is-dir /a", "1|/a|||||0"},
        {"ls /a", "2|/a|||||0"},
        {"prepare-dir u:g 0771 /a", "3|/a||u|g|0771|1"},
        {"move-children /a /b", "4|/a|/b||||0"},
        {"move /a /b", "5|/a|/b||||0"},
        {"copy-children /a /b", "6|/a|/b||||0"},
        {"copy /a /b", "7|/a|/b||||0"},
        {"rm move", "8|" + here + "/move|||||0"},
        {"restorecon -r /a", "9|/a|||||2"},
        {"restorecon --from-parent /a", "10|/a|||||0"},
        {"rm --keep-going /a", "11|/a|||||0"},
        {"mkdir -r /a", "12|/a|||||2"},
        {"chown -r u:5 a/", "13|" + here + "/a/||u|5||2"},
        {"chmod 0750 /a", "14|/a||||0750|1"},
        {"existing-path /a", "15|/a|||||0"},
        {"du /a", "16|/a|||||0"},
        {"largest /a", "17|/a|||||0"},
        {"copy-comb u:g 640 /a -- -b", "18|/a|" + here + "/-b|u|g|640|0"},
    };
    static_assert(std::size(rows) == COMMAND_COUNT);
    for (const auto& [words, sent] : rows) {
        EXPECT_EQ(SentFor(words), sent);
    }
}

TEST(Orvanectl, ListsInColumnsOnATerminal) {
    FakeDaemon daemon({{ReplyBytes(0, 0, {"file:0/long name here:0/dir:1", "\x1b[2J:0", "a:0"})}});
    const Finished run = RunTool("--socket " + daemon.socketPath + " ls /a' /dev/null",
                                 "NO_COLOR=1 LC_ALL=C.UTF-8 script -qec 'stty cols 26;");
    EXPECT_EQ(run.out, "\\x1b[2J  file\r\na        long name here\r\ndir/\r\n") << run.err;
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
