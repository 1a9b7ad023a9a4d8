// The interfaces to the operating system, against the real one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <selinux/restorecon.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <regex>
#include <thread>

#include "bounded_copy.h"
#include "control_socket.h"
#include "label_walk.h"
#include "log.h"
#include "scratch_tree.h"
#include "security_label.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

/// The result of a copy into a buffer that holds "old", and the buffer's text afterwards.
std::pair<int, std::string> Copy(const char* src, std::size_t destSize, std::size_t count) {
    char dest[8] = "old";
    const int result = strncpy_s(dest, destSize, src, count);
    return {result, dest};
}

TEST(BoundedCopy, CopiesOrLeavesNothing) {
    using Is = std::pair<int, std::string>;
    EXPECT_EQ(Copy("abc", 4, 3), Is(0, "abc"));
    EXPECT_EQ(Copy("abcdef", 4, 2), Is(0, "ab"));
    EXPECT_EQ(Copy("a", 4, 99), Is(0, "a"));
    EXPECT_EQ(Copy("abcd", 4, 4), Is(ERANGE, "")) << "no room for the NUL";
    EXPECT_EQ(Copy(nullptr, 4, 1), Is(EINVAL, ""));
    EXPECT_EQ(Copy("a", 4, SIZE_MAX), Is(ERANGE, "")) << "count gone wrong";
    EXPECT_EQ(Copy("a", 0, 1), Is(EINVAL, "old"));
    EXPECT_EQ(Copy("a", SIZE_MAX, 1), Is(ERANGE, "old")) << "size gone wrong";
    char text[] = "abcdef";
    EXPECT_EQ(strncpy_s(text, 4, text + 3, 3), EINVAL) << "overlap";
    EXPECT_STREQ(text, "");
}

TEST(BoundedFill, FillsWhatItMay) {
    char dest[5] = "aaaa";
    EXPECT_EQ(memset_s(dest, 2, 'b', 2), 0);
    EXPECT_STREQ(dest, "bbaa");
    EXPECT_EQ(memset_s(dest, 3, 'c', 4), ERANGE) << "count above the size: the whole destination and no more";
    EXPECT_EQ(memset_s(dest, SIZE_MAX, 'd', 1), ERANGE) << "size gone wrong: nothing";
    EXPECT_STREQ(dest, "ccca");
}

TEST(Log, LineIsOneWriteWithLevelAndPlaceAndCannotBeForged) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);  // a packet for each write
    const UniqueFd receiver(ends[0]), sender(ends[1]), saved(dup(STDERR_FILENO));
    const std::string longPath(5000, 'x'), forged = "a\nb\x1b\x7f";
    dup2(sender.Get(), STDERR_FILENO);
    LogError("open %{public}s failed, errno=%{public}d", forged, 5);
    LogWarn({"%{public}o %{public}u %{public}lu", "Another"}, 493U, 7U, 8UL);
    LogInfo("%{public}s", longPath);
    LogRoutine(LogLevel::Debug, "done");
    close(STDERR_FILENO);
    errno = ENOSPC;
    LogRoutine(LogLevel::Debug, "lost");
    EXPECT_EQ(errno, ENOSPC) << "kept, also where the line could not be written";
    dup2(saved.Get(), STDERR_FILENO);
    const std::string tag = " FileMigrateOrvane: [", own = tag + "TestBody:0] ";
    const std::string lines[] = {" E" + own + "open a\\x0ab\\x1b\\x7f failed, errno=5\n",
                                 " W" + tag + "Another:0] 755 7 8\n", " I" + own + longPath.substr(0, 4091) + "[cut]\n",
                                 " D" + own + "done\n", ""};
    for (const std::string& line : lines) {
        char packet[8192] = {};
        recv(receiver.Get(), packet, sizeof(packet) - 1, MSG_DONTWAIT);
        EXPECT_EQ(std::regex_replace(packet, std::regex("^[-0-9]+ [:.0-9]+( .*:)[0-9]+\\]"), "$010]"), line);
    }
}

/// Prepares this process as init prepares a service. Exits with GetControlSocket's result, which is 255 without a
/// socket.
[[noreturn]] void ExitWithControlSocket(const char* names, int type, bool isListening = true, int domain = AF_UNIX) {
    const int fd = socket(domain, type, 0);
    const sockaddr_un address{AF_UNIX, {}};  // without a path the kernel chooses an abstract name
    static_cast<void>(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address.sun_family)));
    if (isListening) {
        listen(fd, 1);
    }
    dup2(fd, 3), dup2(fd, 4);
    // NOLINTBEGIN(concurrency-mt-unsafe): this process has one thread.
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", std::strchr(names, ':') == nullptr ? "1" : "2", 1);
    setenv("LISTEN_FDNAMES", names, 1);
    // NOLINTEND(concurrency-mt-unsafe)
    const int found = GetControlSocket("orvane");
    _exit(found < 0 || fcntl(found, F_GETFD) == FD_CLOEXEC ? found : 2);
}

TEST(ControlSocket, IsTheOneListeningStreamOfItsName) {
    constexpr const char *OTHER = "other from init is not orvane", *BAD = "not a listening local stream socket";
    const testing::ExitedWithCode isNone(255);
    EXPECT_EXIT(ExitWithControlSocket("orvane", SOCK_STREAM), testing::ExitedWithCode(3), "^$");
    EXPECT_EXIT(ExitWithControlSocket("other:orvane", SOCK_STREAM), testing::ExitedWithCode(4), OTHER);
    EXPECT_EXIT(ExitWithControlSocket("other", SOCK_STREAM), isNone, OTHER);
    EXPECT_EXIT(ExitWithControlSocket("orvane:orvane", SOCK_STREAM), isNone, "more than one");
    EXPECT_EXIT(ExitWithControlSocket("orvane", SOCK_STREAM, /*isListening=*/false), isNone, BAD);
    EXPECT_EXIT(ExitWithControlSocket("orvane", SOCK_SEQPACKET), isNone, BAD);
    EXPECT_EXIT(ExitWithControlSocket("orvane", SOCK_DGRAM), isNone, BAD);
    EXPECT_EXIT(ExitWithControlSocket("orvane", SOCK_STREAM, /*isListening=*/true, AF_INET), isNone, BAD);
}

constexpr int (*Walk)(const char*) = [](const char* path) { return RestoreconRecurseParallel(path, 16); };

/// libselinux's own walk, with the flags that give the result that Walk must give.
constexpr int (*LibraryWalk)(const char*) = [](const char* path) {
    return selinux_restorecon(path, SELINUX_RESTORECON_RECURSE | SELINUX_RESTORECON_SKIP_DIGEST |
                                        SELINUX_RESTORECON_SET_SPECFILE_CTX | SELINUX_RESTORECON_REALPATH);
};

constexpr const char* LABEL = "security.selinux";

std::string LabelOf(const std::string& path) {
    char label[64] = {};
    lgetxattr(path.c_str(), LABEL, label, sizeof(label) - 1);
    return label;
}

/// Mounts a directory with a policy over /etc for each test.
struct SecurityLabel : testing::Test {
    void SetUp() override {
        tree.File("etc/selinux/config", "SELINUXTYPE=mini\n");
        WriteRules("mini", "/.* u:r:root:s0\n" + top + "(/.*)? u:r:dir:s0\n" + directory + "/.* u:r:file:s0\n" + top +
                               "/none(/.*)? <<none>>\n");
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(tree.Path("etc").c_str(), "/etc", nullptr, MS_BIND, nullptr) != 0) {
            GTEST_SKIP() << "needs privilege: a mount namespace";
        }
    }
    void TearDown() override { umount2("/etc", MNT_DETACH); }

    /// Replaces the rules with a rename, as a policy's installer does.
    void WriteRules(const std::string& policy, const std::string& rules) {
        const std::string folder = tree.Dir("etc/selinux/" + policy + "/contexts/files");
        fs::rename(tree.File("new", rules), folder + "/file_contexts");
    }

    /// The label of `labelled` after a call for `path`. If the call failed, its result and error precede the label.
    static std::string After(int (*call)(const char*), const std::string& path, const std::string& labelled) {
        const int result = call(path.c_str());
        const std::string failure = result == 0 ? "" : std::to_string(result) + " " + strerrorname_np(errno) + " ";
        return failure + LabelOf(labelled);
    }

    ScratchTree tree;
    const std::string top = tree.Dir("t"), directory = tree.Dir("t/d"), file = tree.File("t/d/file");
};

TEST_F(SecurityLabel, IsWhatThePolicyPrescribes) {
    constexpr auto ONE = Restorecon, PARENT = RestoreconFromParentDir;
    const std::string frozen = tree.File("t/d/frozen"), unlabelled = tree.File("t/none/file");
    const std::string link = tree.Link("t/link", directory), missing = tree.Path("t/missing");
    const std::string relative = fs::relative(file);
    tree.MakeImmutable(frozen);
    lsetxattr(file.c_str(), "security.selinux", "v:r:x:s0", 9, 0);
    EXPECT_EQ(After(ONE, file, file), "u:r:file:s0") << "another label, user included";
    EXPECT_EQ(After(PARENT, file, file), "u:r:dir:s0");
    EXPECT_EQ(After(ONE, relative, file), "u:r:file:s0");
    EXPECT_EQ(After(PARENT, relative, file), "u:r:dir:s0");
    EXPECT_EQ(After(ONE, link, link), "u:r:dir:s0");
    EXPECT_EQ(After(PARENT, link, directory), "") << "neither call follows the link";
    EXPECT_EQ(After(ONE, link + "/", directory), "-1 ENOTDIR ") << "a slash does not follow it either";
    EXPECT_EQ(After(Walk, link, file), "u:r:dir:s0") << "left as it was";
    EXPECT_EQ(After(PARENT, top + "/", top), "u:r:root:s0");
    EXPECT_EQ(After(PARENT, unlabelled, unlabelled), "") << "none prescribed";
    EXPECT_EQ(After(ONE, missing, missing), "-1 ENOENT ");
    EXPECT_EQ(After(PARENT, missing, missing), "-2 ENOENT ");
    EXPECT_EQ(After(Walk, missing, missing), "-1 ENOENT ");
    EXPECT_EQ(After(Walk, top, file), "-1 EPERM u:r:file:s0") << "one entry fails, the others are done";
}

/// Compares the labels of all objects after either walk over the same tree.
TEST_F(SecurityLabel, IsWhatTheLibrarysOwnWalkGives) {
    WriteRules("mini", top + "(/.*)? u:r:any:s0\n" + top + "/.* -d u:r:dir:s0\n" + top + "/.* -l u:r:link:s0\n" + top +
                           "/.* -p u:r:pipe:s0\n" + top + "/.* -s u:r:socket:s0\n" + top +
                           "/.* -c system_u:object_r:device:s0:c1\n" + top + "/none(/.*)? <<none>>\n" + top +
                           "/none/but u:r:but:s0\n" + top + "/file.* -- u:r:file:s0\n");
    tree.File("etc/selinux/mini/contexts/customizable_types", "custom\n");
    const std::string socketPath = tree.Path("t/socket");
    (void)BoundSocket(socketPath, SOCK_STREAM);
    ASSERT_EQ(mknod(tree.Path("t/device").c_str(), S_IFCHR | 0600, 0), 0);
    // Several threads walk so many files.
    ASSERT_TRUE(
        tree.Shell("cd t; mkdir -p none d/e/f; mkfifo pipe none/pipe; ln -s d link; ln -s nowhere dangling; "
                   "touch none/but none/not d/e/f/g \"$(printf 'new\\nline \\377')\"; cd d; "
                   "mkdir $(seq 20); for n in $(seq 400); do : >$((n % 20 + 1))/$n; done"));
    // A file for each case: no label, the right one, another user, role, type or range, and a customizable type.
    const char* labels[] = {"",         "u:r:file:s0",    "v:r:file:s0",  "u:q:file:s0",
                            "u:r:x:s0", "u:r:file:s0:c3", "u:r:custom:s0"};
    const auto walked = [&](int (*walk)(const char*)) {
        std::size_t number = 0;
        for (const std::string label : labels) {
            const std::string labelled = tree.File("t/file" + std::to_string(number++));
            if (!label.empty()) {
                lsetxattr(labelled.c_str(), LABEL, label.c_str(), label.length() + 1, 0);
            }
        }
        std::map<std::string, std::string> result{{"result", After(walk, top, top)}};
        for (const auto& entry : fs::recursive_directory_iterator(top)) {
            result[entry.path()] = LabelOf(entry.path());
            lremovexattr(entry.path().c_str(), LABEL);
        }
        return result;
    };
    const auto expected = walked(LibraryWalk);
    EXPECT_EQ(walked(Walk), expected);
    EXPECT_TRUE(expected.size() == 443 && expected.at(socketPath) == "u:r:socket:s0") << expected.size();
}

TEST_F(SecurityLabel, WhatIsRightAlreadyIsNotWritten) {
    EXPECT_EQ(After(Walk, top, file), "u:r:file:s0");
    const timespec before = Lstat(file).st_ctim;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(Walk(top.c_str()), 0);
    EXPECT_TRUE(Lstat(file).st_ctim.tv_sec == before.tv_sec && Lstat(file).st_ctim.tv_nsec == before.tv_nsec);
}

TEST_F(SecurityLabel, MountsBelowThemselvesAndPathsTooLongFailAlone) {
    const std::string loop = tree.Dir("t/a/loop"), last = tree.File("t/z");
    ASSERT_EQ(mount(top.c_str(), loop.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(After(Walk, top, last), "-1 ELOOP u:r:dir:s0");
    EXPECT_EQ(umount2(loop.c_str(), MNT_DETACH), 0);
    ASSERT_TRUE(tree.Shell("cd t; perl -e '$n = \"n\" x 250; mkdir($n, 0755), chdir $n for 1..17'"));
    lremovexattr(last.c_str(), LABEL);
    EXPECT_EQ(After(Walk, top, last), "-1 ENAMETOOLONG u:r:dir:s0");
}

TEST_F(SecurityLabel, NoticesThatAnotherPolicyIsChosenAndThatItGoes) {
    EXPECT_EQ(After(Restorecon, file, file), "u:r:file:s0");
    WriteRules("other", "/.* u:r:other:s0\n");
    tree.File("etc/selinux/config", "SELINUXTYPE=other\n");
    EXPECT_EQ(After(Restorecon, file, file), "u:r:other:s0");
    tree.File("etc/selinux/other/contexts/files/file_contexts.local", "/.* u:r:local:s0\n");
    EXPECT_EQ(After(Restorecon, file, file), "u:r:local:s0") << "the machine's own rules have changed";
    fs::remove("/etc/selinux/other/contexts/files/file_contexts.local");
    EXPECT_EQ(After(Restorecon, file, file), "u:r:other:s0");
    fs::remove("/etc/selinux/other/contexts/files/file_contexts");
    EXPECT_EQ(After(Restorecon, file, file), "-1 EOPNOTSUPP u:r:other:s0");
    EXPECT_EQ(After(RestoreconFromParentDir, file, file), "-95 EOPNOTSUPP u:r:other:s0");
    EXPECT_EQ(After(Walk, file, file), "-1 EOPNOTSUPP u:r:other:s0");
}

TEST_F(SecurityLabel, WorkersMayCallWhileThePolicyChanges) {
    std::vector<std::jthread> workers;
    for (auto* call : {Restorecon, RestoreconFromParentDir, Walk, Walk}) {
        workers.emplace_back([call, this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                EXPECT_EQ(call(file.c_str()), 0);
            }
        });
    }
    for (int i = 10; i < 30; ++i) {
        WriteRules("mini", "/.* u:r:t" + std::to_string(i) + ":s0\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    workers.clear();
    EXPECT_EQ(After(Restorecon, file, file), "u:r:t29:s0");
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
