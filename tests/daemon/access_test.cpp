// Who can reach what a request creates, while it works and afterwards: nobody who could not reach the source.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <utility>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using enum Command;

constexpr uid_t USER = 1000;

constexpr const char* ACCESS_LIST = "system.posix_acl_access";
/// Version, then tag, permissions and id of: the owner, user 1000, the owning group, the mask, all others.
constexpr unsigned char LIST[] = {2, 0,   0,   0,   1,   0,   6,  0, 255, 255, 255, 255, 2,   0,  6,
                                  0, 232, 3,   0,   0,   4,   0,  4, 0,   255, 255, 255, 255, 16, 0,
                                  6, 0,   255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};

using AccessTest = DaemonTest;

/// The owner of the old file would otherwise delay the copy, or keep it from being made.
TEST_F(AccessTest, LeaseOnTheOldFileIsNoObstacle) {
    (void)signal(SIGIO, SIG_IGN);
    for (const Command cmd : {CopyAll, CopyComb}) {
        const std::string source = tree->File("s", "new"), old = tree->File("t", "old", 0600);
        ASSERT_EQ(chown(old.c_str(), USER, USER), 0);
        const UniqueFd held(open(old.c_str(), O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(fcntl(held.Get(), F_SETLEASE, F_RDLCK), 0);
        EXPECT_EQ(Call({cmd, source, old, "0", "0", "600"}).result, 0) << int(cmd);
        EXPECT_EQ(ReadFile(old), "new") << int(cmd);
    }
}

/// The group bits of an object with an access ACL are the list's mask: what a named user may do, the group need not.
TEST_F(AccessTest, GroupGetsWhatItsEntryInTheListAllows) {
    for (const auto& [cmd, isDirectory] :
         {std::pair{CopyAll, false}, {CopyAll, true}, {MoveAll, false}, {MoveAll, true}}) {
        NewTrees();
        const std::string source = isDirectory ? tree->Dir("s", 0640) : tree->File("s", "content", 0640);
        ASSERT_EQ(setxattr(source.c_str(), ACCESS_LIST, LIST, sizeof(LIST), 0), 0);
        ASSERT_EQ(Lstat(source).st_mode & 0777, 0660U);
        const std::string made = (cmd == MoveAll ? *second : *tree).Path("t");
        EXPECT_EQ(Call({cmd, source, made}).result, 0);
        EXPECT_EQ(Lstat(made).st_mode & 0777, 0640U) << int(cmd) << isDirectory;
    }
}

/// New objects inherit the default list of their directory. Its named users must not reach a copy, and neither must
/// those in the list of the file that the copy replaces.
TEST_F(AccessTest, CopyDoesNotKeepTheListOfItsDestination) {
    const std::string listed = tree->File("listed", "old", 0600);
    ASSERT_EQ(setxattr(listed.c_str(), ACCESS_LIST, LIST, sizeof(LIST), 0), 0);
    EXPECT_EQ(Call({CopyAll, tree->File("s", "new"), listed}).result, 0);
    EXPECT_EQ(getxattr(listed.c_str(), ACCESS_LIST, nullptr, 0), -1);
    for (const Command cmd : {CopyAll, CopySub, CopyComb}) {
        tree.emplace();
        tree->File("s/d/f");
        tree->File("s/g");
        const std::string made = tree->Dir("t");
        ASSERT_EQ(setxattr(made.c_str(), "system.posix_acl_default", LIST, sizeof(LIST), 0), 0);
        EXPECT_EQ(Call({cmd, tree->Path("s"), cmd == CopyAll ? made + "/s" : made, "0", "0", "770"}).result, 0);
        EXPECT_TRUE(fs::exists(made + (cmd == CopyAll ? "/s/d/f" : "/d/f")));
        for (const auto& entry : fs::recursive_directory_iterator(made)) {
            for (const char* list : {ACCESS_LIST, "system.posix_acl_default"}) {
                EXPECT_EQ(getxattr(entry.path().c_str(), list, nullptr, 0), -1) << int(cmd) << entry << list;
            }
        }
    }
}

/// Some file systems have no owners and modes of their own (vfat), others do not let root choose an owner (a network
/// file system whose server distrusts the clients' root).
TEST_F(AccessTest, FileSystemsThatDecideOwners) {
    // The options, the error of requests that name an owner, and the owner and the mode of a directory.
    const std::tuple<std::string, int, uid_t, mode_t> rows[] = {
        {"--force-user=1000 --force-group=1000 --perms=0755 --chown-ignore --chmod-ignore", 0, USER, 0755},
        {"--create-for-user=65534 --create-for-group=65534 --chown-deny", EPERM, 65534, 0711},
    };
    const std::string mounted = tree->Dir("mounted");
    if (!Shell("mkdir fuse; mount -t devtmpfs devices fuse; touch /dev/fuse; mount --bind fuse/fuse /dev/fuse; umount "
               "-l fuse")) {
        GTEST_SKIP() << "needs privilege: a mount, and /dev/fuse";
    }
    for (const auto& [options, error, owner, mode] : rows) {
        second.emplace(ScratchTree::On::SecondFs);
        ASSERT_TRUE(Shell("bindfs " + options + " ~ mounted"));
        tree->File("s/d/f");
        for (const auto& [request, expected] : {
                 std::pair(Request{PrepareDir, mounted + "/p", "", "1000", "1000", "751", 1}, error),
                 {Request{PrepareDir, mounted + "/q/r", "", "1000", "1000", "751", 2}, error},
                 {Request{CopyAll, tree->Path("s"), mounted + "/s"}, 0},
                 {Request{CopyAll, tree->Path("s"), mounted + "/s"}, 0},
                 {Request{MoveAll, tree->Path("s"), mounted + "/m"}, error},
             }) {
            const Reply reply = Call(request);
            EXPECT_EQ(reply.result == 0 ? 0 : reply.errCode, expected) << int(request.cmd) << request.src << options;
        }
        EXPECT_EQ(Lstat(mounted + "/p").st_mode & 07777, mode) << options;
        EXPECT_TRUE(Lstat(mounted + "/p").st_uid == owner && fs::exists(mounted + "/s/d/f")) << options;
        EXPECT_EQ(std::ssize(Records()), error == 0 ? 0 : 5);
        EXPECT_EQ(umount2(mounted.c_str(), MNT_DETACH), 0);
    }
    umount2("/dev/fuse", MNT_DETACH);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
