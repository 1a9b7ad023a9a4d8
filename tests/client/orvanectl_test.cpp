// The tool as a person calls it from a shell, against a daemon of the test's own: what it asks for, its exit statuses
// and what it writes where.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "fake_daemon.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

struct Finished {
    int status;
    std::string out, err;
};

Finished RunTool(const std::string& socketPath, const std::string& words) {
    const ScratchTree files;
    const std::string out = files.Path("out"), err = files.Path("err");
    const std::string call = ORVANECTL_PATH " --socket " + socketPath + " " + words + " >" + out + " 2>" + err;
    const int status = std::system(call.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe): a shell is wanted.
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
}

/// @param err  a part of what it writes to standard error; empty: nothing at all
void ExpectTold(const std::string& words, const Answer& answer, int status, const std::string& out,
                const std::string& err) {
    FakeDaemon daemon({answer});
    const Finished run = RunTool(daemon.socketPath, words);
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
    ExpectTold("sing", {}, 2, "", "sing");
    ExpectTold("", {}, 2, "", "sub-command is required");
    const Finished alone = RunTool("/nowhere", "exists /a");
    EXPECT_TRUE(alone.status == 4 && alone.err.find("/nowhere: No such file") != alone.err.npos) << alone.err;
}

std::string SentFor(const std::string& words) {
    FakeDaemon daemon;
    static_cast<void>(RunTool(daemon.socketPath, words));  // an answer that suits all commands does not exist
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

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
