// The seams to the operating system, against the real one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bounded_copy.h"
#include "control_socket.h"
#include "log.h"
#include "scratch_tree.h"
#include "security_label.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

TEST(BoundedCopy, CopiesOrLeavesNothing) {
    struct Case {
        const char* name;
        std::size_t destSize;
        const char* src;
        std::size_t count;
        int result;
        const char* dest;
    };
    const Case cases[] = {
        {"fits exactly", 4, "abc", 3, 0, "abc"},
        {"cut by its count", 4, "abcdef", 2, 0, "ab"},
        {"count above the text", 4, "a", 99, 0, "a"},
        {"nothing", 4, "abc", 0, 0, ""},
        {"no room for the NUL", 4, "abcd", 4, ERANGE, ""},
        {"no source", 4, nullptr, 1, EINVAL, ""},
        {"count gone wrong", 4, "a", SIZE_MAX, ERANGE, ""},
        {"no room at all", 0, "a", 1, EINVAL, "old"},
        {"size gone wrong", SIZE_MAX, "a", 1, ERANGE, "old"},
    };
    for (const Case& c : cases) {
        char dest[8] = "old";
        EXPECT_EQ(strncpy_s(dest, c.destSize, c.src, c.count), c.result) << c.name;
        EXPECT_STREQ(dest, c.dest) << c.name;
    }
    char text[] = "abcdef";
    EXPECT_EQ(strncpy_s(text, 4, text + 2, 3), EINVAL) << "overlap";
    EXPECT_STREQ(text, "");
}

TEST(BoundedFill, FillsWhatItMay) {
    char dest[5] = "aaaa";
    EXPECT_EQ(memset_s(dest, 2, 'b', 2), 0);
    EXPECT_STREQ(dest, "bbaa");
    EXPECT_NE(memset_s(dest, 3, 'c', 4), 0) << "count above the size: the whole destination and no more";
    EXPECT_STREQ(dest, "ccca");
    EXPECT_NE(memset_s(dest, SIZE_MAX, 'd', 1), 0) << "size gone wrong: nothing";
    EXPECT_STREQ(dest, "ccca");
}

constexpr int REFUSED = 77;

/// Runs `body` in a child process, whose failed expectations are the test's, and so is a sanitizer's complaint.
/// @return false if the body ended the process with REFUSED
bool InChild(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    const bool isRefused = WIFEXITED(status) && WEXITSTATUS(status) == REFUSED;
    EXPECT_TRUE(isRefused || status == 0) << "in the child process, see above; status " << status;
    return !isRefused;
}

/// Catches standard error, one packet per write.
class StandardErrorPackets {
public:
    StandardErrorPackets() : saved(dup(STDERR_FILENO)) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        received = UniqueFd(ends[0]);
        const UniqueFd sender(ends[1]);
        dup2(sender.Get(), STDERR_FILENO);
    }
    ~StandardErrorPackets() { dup2(saved.Get(), STDERR_FILENO); }

    /// The next packet; empty if there is none.
    [[nodiscard]] std::string Next() const {
        std::string packet(16384, '\0');
        const ssize_t n = recv(received.Get(), packet.data(), packet.size(), MSG_DONTWAIT);
        packet.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
        return packet;
    }

private:
    UniqueFd saved, received;
};

TEST(Log, LineIsOneWriteWithLevelAndPlaceAndCannotBeForged) {
    const std::string longPath(5000, 'x'), forged = "a\nb\x1b";
    StandardErrorPackets packets;
    errno = ENOSPC;
    LogError("open %{public}s failed, errno=%{public}d", forged, 5);
    LogWarn({"%{public}o %{public}u %{public}lu", "Another"}, 493U, 7U, 8UL);
    LogInfo("%{public}s", longPath);
    LogDebug("done");
    EXPECT_EQ(errno, ENOSPC);
    const std::string expected[] = {" E FileMigrateOrvane: [TestBody:0] open a\\x0ab\\x1b failed, errno=5\n",
                                    " W FileMigrateOrvane: [Another:0] 755 7 8\n",
                                    " I FileMigrateOrvane: [TestBody:0] " + longPath + "\n",
                                    " D FileMigrateOrvane: [TestBody:0] done\n", ""};
    for (const std::string& end : expected) {
        const std::string line =
            std::regex_replace(packets.Next(), std::regex("^[-0-9]+ [:.0-9]+( .*:)[0-9]+\\]"), "$010]");
        EXPECT_EQ(line, end);
    }
}

/// A local socket of `type`, bound, listening if `isListening`.
int LocalSocket(int type, bool isListening) {
    const int fd = socket(AF_UNIX, type, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;  // without a path the kernel chooses an abstract one
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address.sun_family)), 0);
    EXPECT_TRUE(!isListening || listen(fd, 1) == 0);
    return fd;
}

TEST(ControlSocket, TakesTheOneListeningStreamOfItsName) {
    EXPECT_EQ(GetControlSocket("orvane"), -1) << "none passed";
    struct Case {
        const char* names;
        int type;
        bool isListening;
        int result;
        const char* warning;
    };
    const Case cases[] = {
        {"orvane", SOCK_STREAM, true, 3, ""},
        {"other:orvane", SOCK_STREAM, true, 4, "other from init is not orvane"},
        {"other", SOCK_STREAM, true, -1, "other from init is not orvane"},
        {"orvane:orvane", SOCK_STREAM, true, -1, "more than one"},
        {"orvane", SOCK_STREAM, false, -1, "not a listening local stream socket"},
        {"orvane", SOCK_DGRAM, false, -1, "not a listening local stream socket"},
    };
    for (const Case& c : cases) {
        InChild([&c] {
            int next = 3;
            std::istringstream names(c.names);
            for (std::string name; std::getline(names, name, ':');) {
                dup2(LocalSocket(c.type, c.isListening), next++);
            }
            const StandardErrorPackets packets;
            setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
            setenv("LISTEN_FDS", std::to_string(next - 3).c_str(), 1);
            setenv("LISTEN_FDNAMES", c.names, 1);
            const int fd = GetControlSocket("orvane");
            EXPECT_EQ(fd, c.result) << c.names;
            EXPECT_TRUE(fd < 0 || fcntl(fd, F_GETFD) == FD_CLOEXEC) << c.names;
            const std::string line = packets.Next();
            EXPECT_NE(line.find(c.warning), std::string::npos) << c.names << line;
            EXPECT_EQ(line.empty(), *c.warning == '\0') << line;
        });
    }
}

int Walk(const char* path) {
    return RestoreconRecurseParallel(path, 16);
}

struct LabelCase {
    const char* name;
    int (*call)(const char*);
    std::string path;
    int error;
    std::string labelled;
    const char* label;  ///< of `labelled`, after the call
};

void Check(const std::vector<LabelCase>& cases) {
    for (const LabelCase& c : cases) {
        const int failure = c.call == RestoreconFromParentDir ? -c.error : -1;
        EXPECT_EQ(c.call(c.path.c_str()), c.error == 0 ? 0 : failure) << c.name;
        EXPECT_TRUE(c.error == 0 || errno == c.error) << c.name << ": " << errno;
        char label[256] = {};
        lgetxattr(c.labelled.c_str(), "security.selinux", label, sizeof(label) - 1);
        EXPECT_STREQ(label, c.label) << c.name;
    }
}

/// Tests run in a child process, with a folder of their own over /etc that holds a policy.
class SecurityLabel : public testing::Test {
protected:
    void WithPolicy(const std::function<void()>& body) {
        tree.File("etc/selinux/config", "SELINUXTYPE=mini\n");
        WriteRules("/.*\tu:object_r:root_t:s0\n" + top + "(/.*)?\tu:object_r:dir_t:s0\n" + directory +
                   "/.*\tu:object_r:file_t:s0\n" + top + "/none(/.*)?\t<<none>>\n");
        const bool isPermitted = InChild([&] {
            if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount(tree.Path("etc").c_str(), "/etc", nullptr, MS_BIND, nullptr) != 0) {
                _exit(REFUSED);
            }
            body();
        });
        if (!isPermitted) {
            GTEST_SKIP() << "needs privilege: a mount namespace";
        }
    }

    /// Put into place whole, as a policy's installer does it.
    void WriteRules(const std::string& rules, const std::string& policy = "mini") {
        const std::string folder = tree.Dir("etc/selinux/" + policy + "/contexts/files");
        rename(tree.File("new", rules).c_str(), (folder + "/file_contexts").c_str());
    }

    ScratchTree tree;
    const std::string top = tree.Dir("t"), directory = tree.Dir("t/d"), file = tree.File("t/d/file");
};

TEST_F(SecurityLabel, SetsWhatThePolicyPrescribes) {
    const std::string frozen = tree.File("t/d/frozen"), unlabelled = tree.File("t/none/file");
    const std::string link = tree.Link("t/link", directory), missing = tree.Path("t/missing");
    constexpr const char *FILE_T = "u:object_r:file_t:s0", *DIR_T = "u:object_r:dir_t:s0";
    constexpr auto ONE = Restorecon, PARENT = RestoreconFromParentDir;
    tree.MakeImmutable(frozen);
    lsetxattr(file.c_str(), "security.selinux", "v:object_r:x_t:s0", 18, 0);
    WithPolicy([&] {
        ASSERT_EQ(chdir(directory.c_str()), 0);
        Check({{"another label, user included", ONE, file, 0, file, FILE_T},
               {"from the parent", PARENT, file, 0, file, DIR_T},
               {"relative", ONE, "file", 0, file, FILE_T},
               {"relative, from the parent", PARENT, "file", 0, file, DIR_T},
               {"the link itself", ONE, link, 0, directory, ""},
               {"the link itself, from the parent", PARENT, link, 0, directory, ""},
               {"the link's target", ONE, link + "/", 0, directory, DIR_T},
               {"from the root", PARENT, top + "/", 0, top, "u:object_r:root_t:s0"},
               {"none prescribed", ONE, unlabelled, 0, unlabelled, ""},
               {"none prescribed for the parent", PARENT, unlabelled, 0, unlabelled, ""},
               {"missing", ONE, missing, ENOENT, missing, ""},
               {"missing, from the parent", PARENT, missing, ENOENT, missing, ""},
               {"missing tree", Walk, missing, ENOENT, missing, ""},
               {"immutable", ONE, frozen, EPERM, frozen, ""},
               {"immutable, from the parent", PARENT, frozen, EPERM, frozen, ""},
               {"one entry fails, the others are done", Walk, top, EPERM, file, FILE_T},
               {"with links labelled themselves", Walk, top, EPERM, link, DIR_T}});
    });
}

TEST_F(SecurityLabel, NoticesAPolicyThatChangesOrGoes) {
    WithPolicy([this] {
        Check({{"first policy", Restorecon, file, 0, file, "u:object_r:file_t:s0"}});
        WriteRules("/.*\tu:object_r:new_t:s0\n");
        Check({{"changed", Restorecon, file, 0, file, "u:object_r:new_t:s0"}});
        WriteRules("/.*\tu:object_r:other_t:s0\n", "other");
        tree.File("etc/selinux/config", "SELINUXTYPE=other\n");
        Check({{"another chosen", Restorecon, file, 0, file, "u:object_r:other_t:s0"}});
        unlink("/etc/selinux/other/contexts/files/file_contexts");
        for (auto* call : {Restorecon, RestoreconFromParentDir, Walk}) {
            Check({{"gone", call, file, EOPNOTSUPP, file, "u:object_r:other_t:s0"}});
        }
    });
}

TEST_F(SecurityLabel, WorkersMayCallWhileThePolicyChanges) {
    WithPolicy([this] {
        std::atomic<bool> isDone{false};
        std::vector<std::thread> workers;
        for (auto* call : {Restorecon, RestoreconFromParentDir, Walk, Walk}) {
            workers.emplace_back([&isDone, call, this] {
                while (!isDone) {
                    EXPECT_EQ(call(file.c_str()), 0);
                }
            });
        }
        for (int i = 10; i < 30; ++i) {
            WriteRules("/.*\tu:object_r:t" + std::to_string(i) + "_t:s0\n");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        isDone = true;
        for (std::thread& worker : workers) {
            worker.join();
        }
        Check({{"last policy", Restorecon, file, 0, file, "u:object_r:t29_t:s0"}});
    });
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
