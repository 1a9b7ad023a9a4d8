// The tool as a process: exit statuses and what it writes where, against a daemon of the test's own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>

#include "fake_daemon.h"

namespace TAVO::FileMigrateOrvane {
namespace {

struct Finished {
    int status;
    std::string out;
    std::string err;
};

std::string ReadAll(int fd) {
    char buffer[4096];
    const ssize_t size = pread(fd, buffer, sizeof(buffer), 0);
    close(fd);
    return {buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

Finished RunTool(std::vector<std::string> words) {
    words.insert(words.begin(), ORVANECTL_PATH);
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const int out = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    const int err = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(out), ReadAll(err)};
}

TEST(Orvanectl, TellsByStatusAndText) {
    const struct {
        std::vector<std::string> words;
        Answer answer;
        int status;
        const char* out;
        const char* err;  ///< a part of it; empty: nothing at all
    } rows[] = {
        {{"exists", "/a"}, {ReplyBytes(1, 0)}, 0, "", ""},
        {{"exists", "/a"}, {ReplyBytes(0, 0)}, 1, "", ""},
        {{"is-dir", "/a"},
         {ReplyBytes(-1, ENOENT)},
         1,
         "",
         "orvanectl: is-dir /a: ENOENT (No such file or directory)\n"},
        {{"ls", "/a"}, {ReplyBytes(0, 0, {"sub:1/x:y:0"})}, 0, "sub/\nx:y\n", ""},
        {{"existing-path", "/a/b"}, {ReplyBytes(0, 0, {"/a/b"})}, 0, "/a/b\n", ""},
        {{"du", "/a"}, {ReplyBytes(12, 0)}, 0, "12\n", ""},
        {{"du", "/a"}, {ReplyBytes(12, EACCES)}, 1, "12\n", "not whole: EACCES"},
        {{"largest", "/a"}, {ReplyBytes(-1, ENOENT)}, 1, "", "ENOENT"},
        {{"move", "/a", "/b"}, {ReplyBytes(0, EXDEV)}, 0, "", ""},
        {{"move", "/a", "/b"}, {ReplyBytes(-1, EACCES)}, 1, "", "move /a -> /b: EACCES (Permission denied)\n"},
        {{"chmod", "0", "/a"}, {ReplyBytes(-1, 0)}, 1, "", "no error number"},
        {{"copy", "/a", "/b"}, {ReplyBytes(-2, 0)}, 3, "", "source does not exist"},
        {{"mkdir", "/a", "--timeout", "1"}, {""}, 4, "", "timed out"},
        {{"rm", "/a"}, {"", true}, 4, "", "closed the connection"},
        {{"exists", "/a", "--socket", "/nowhere"}, {}, 4, "", "/nowhere: No such file"},
        {{"exists", "/a/../b"}, {}, 2, "", "src contains \"../\""},
        {{"rm", ""}, {}, 2, "", "empty path"},
        {{"chown", "root", "/a"}, {}, 2, "", "USER:GROUP"},
        {{"chmod", "u+x", "/a"}, {}, 2, "", "octal"},
        {{"sing"}, {}, 2, "", "orvanectl: "},
    };
    for (const auto& row : rows) {
        FakeDaemon daemon({row.answer});
        std::vector<std::string> words = {"--socket", daemon.socketPath};
        if (row.words.back() == "/nowhere") {
            words.clear();
        }
        words.insert(words.end(), row.words.begin(), row.words.end());
        const Finished run = RunTool(words);
        EXPECT_EQ(run.status, row.status) << testing::PrintToString(row.words) << run.err;
        EXPECT_EQ(run.out, row.out) << testing::PrintToString(row.words);
        EXPECT_TRUE(*row.err == '\0' ? run.err.empty() : run.err.find(row.err) != std::string::npos)
            << testing::PrintToString(row.words) << run.err;
        const bool isSent = row.status != 2 && row.words.back() != "/nowhere";
        EXPECT_EQ(daemon.Requests().size(), isSent ? 1U : 0U) << testing::PrintToString(row.words);
    }
}

TEST(Orvanectl, SendsWhatWasMeant) {
    const std::string here = std::filesystem::current_path().string();
    const struct {
        std::vector<std::string> words;
        Command cmd;
        std::string texts;  ///< src|dst|user|group|perm|recurseOpt
    } rows[] = {
        {{"chown", "-r", "u:5", "a/"}, Command::ChOwn, here + "/a/||u|5||2"},
        {{"prepare-dir", "u:g", "0771", "/a"}, Command::PrepareDir, "/a||u|g|0771|1"},
        {{"copy-comb", "u:g", "640", "/a", "--", "-b"}, Command::CopyComb, "/a|" + here + "/-b|u|g|640|0"},
        {{"rm", "move"}, Command::Remove, here + "/move|||||0"},
        {{"rm", "--keep-going", "/a"}, Command::TryRemove, "/a|||||0"},
        {{"restorecon", "-r", "/a"}, Command::Restorecon, "/a|||||2"},
        {{"restorecon", "--from-parent", "/a"}, Command::RestoreconFromParent, "/a|||||0"},
        {{"move-children", "/a", "/b"}, Command::MoveSub, "/a|/b||||0"},
        {{"copy-children", "/a", "/b"}, Command::CopySub, "/a|/b||||0"},
    };
    for (const auto& row : rows) {
        FakeDaemon daemon;
        std::vector<std::string> words = {"--socket", daemon.socketPath};
        words.insert(words.end(), row.words.begin(), row.words.end());
        EXPECT_EQ(RunTool(words).status, 0) << testing::PrintToString(row.words);
        ASSERT_EQ(daemon.Requests().size(), 1U);
        const FileMigrateRcvMsg sent = daemon.Requests().front();
        EXPECT_EQ(sent.cmd, static_cast<std::int32_t>(row.cmd)) << testing::PrintToString(row.words);
        EXPECT_EQ(std::string(sent.src) + "|" + sent.dst + "|" + sent.user + "|" + sent.group + "|" + sent.perm + "|" +
                      std::to_string(sent.recurseOpt),
                  row.texts);
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane
