// Who can reach what a request creates, while it works and afterwards: nobody who could not reach the source.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

namespace fs = std::filesystem;
using enum Command;

constexpr uid_t USER = 1000;
constexpr gid_t GROUP = 7;

constexpr const char* ACCESS_LIST = "system.posix_acl_access";
/// Version, then tag, permissions and id of: the owner, user 1000, the owning group, the mask, all others.
constexpr unsigned char LIST[] = {2, 0,   0,   0,   1,   0,   6,  0, 255, 255, 255, 255, 2,   0,  6,
                                  0, 232, 3,   0,   0,   4,   0,  4, 0,   255, 255, 255, 255, 16, 0,
                                  6, 0,   255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};

using AccessTest = DaemonTest;

/// Nobody reaches the copy through the file that was at the destination: not its owner, nor who has it open, nor who
/// has another name for it. Its owner's lease and the rules for sticky directories do not protect it.
TEST_F(AccessTest, FileThatWouldLetInMoreThanTheCopyIsReplaced) {
    enum Old { PLAIN, LEASED, LINKED, LISTED };
    const struct {
        const char* name;
        Request request;  ///< "s", with mode 0660, and "t"
        uid_t sourceOwner;
        uid_t oldOwner;
        mode_t oldMode;
        Old old;
        bool isReplaced;
        uid_t owner;  ///< of the result
    } rows[] = {
        {"combined copy, another's", {CopyComb, "@s", "@t", "0", "0", "755"}, 0, USER, 0600, LEASED, true, 0},
        {"combined copy, the owner's", {CopyComb, "@s", "@t", "1000", "0", "755"}, 0, USER, 0644, PLAIN, false, USER},
        {"combined copy, was open", {CopyComb, "@s", "@t", "0", "0", "600"}, 0, 0, 0604, PLAIN, true, 0},
        {"combined copy to a program", {CopyComb, "@s", "@t", "0", "0", "4755"}, 0, 0, 0600, PLAIN, true, 0},
        {"copy, another's", {CopyAll, "@s", "@t"}, 0, USER, 0600, LEASED, true, 0},
        {"copy, the owner's", {CopyAll, "@s", "@t"}, USER, USER, 0600, PLAIN, false, USER},
        {"copy, the owner's, was open", {CopyAll, "@s", "@t"}, USER, USER, 0642, PLAIN, true, USER},
        {"copy, two names", {CopyAll, "@s", "@t"}, 0, 0, 0600, LINKED, true, 0},
        {"copy, a list", {CopyAll, "@s", "@t"}, 0, 0, 0600, LISTED, true, 0},
        {"move, another's", {MoveAll, "@s", "~t"}, 0, USER, 0600, LEASED, true, 0},
        {"move, the owner's", {MoveAll, "@s", "~t"}, USER, USER, 0600, PLAIN, false, USER},
    };
    (void)signal(SIGIO, SIG_IGN);
    for (auto [name, request, sourceOwner, oldOwner, oldMode, old, isReplaced, owner] : rows) {
        NewTrees();
        ScratchTree& target = request.dst[0] == '~' ? *second : *tree;
        request.src = tree->File("s", "content", 0660);
        request.dst = target.File("t", "old", oldMode);
        const std::string otherName = target.Path("other");
        ASSERT_EQ(chown(request.src.c_str(), sourceOwner, 0) + chown(request.dst.c_str(), oldOwner, oldOwner) +
                      chmod(target.Path().c_str(), 01777) +
                      (old == LINKED ? link(request.dst.c_str(), otherName.c_str()) : 0) +
                      (old == LISTED ? setxattr(request.dst.c_str(), ACCESS_LIST, LIST, sizeof(LIST), 0) : 0),
                  0);
        const UniqueFd held(open(request.dst.c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(old == LEASED ? fcntl(held.Get(), F_SETLEASE, F_RDLCK) : 0, 0) << name;
        EXPECT_EQ(Call(request).result, 0) << name;
        char byte = 0;
        EXPECT_EQ(pread(held.Get(), &byte, 1, 0), 1);
        EXPECT_EQ(byte, isReplaced ? 'o' : 'c') << name;
        EXPECT_TRUE(ReadFile(request.dst) == "content" && Lstat(request.dst).st_uid == owner) << name;
        EXPECT_TRUE(old != LINKED || ReadFile(otherName) == "old") << name;
    }
}

/// A copy may get the group of the destination's directory. The members of that group had the rights of all others.
TEST_F(AccessTest, GroupOfTheDirectoryGetsWhatOthersHave) {
    const struct {
        const char* name;
        gid_t sourceGroup;
        mode_t directory, top, below, file;  ///< modes
    } rows[] = {
        {"another group", 0, 02775, 02700, 02711, 0600},
        {"the source's group", GROUP, 02775, 02750, 02751, 0640},
        {"without the bit", 0, 0775, 0750, 0751, 0640},
    };
    for (const auto& [name, sourceGroup, directory, top, below, file] : rows) {
        tree.emplace();
        const std::string shared = tree->Dir("shared"), source = tree->Dir("s", 0750);
        ASSERT_EQ(chown(shared.c_str(), 0, GROUP) + chmod(shared.c_str(), directory), 0);
        for (const std::string& object : {source, tree->Dir("s/d", 0751), tree->File("s/d/f", "c", 0640)}) {
            ASSERT_EQ(chown(object.c_str(), USER, sourceGroup), 0);
        }
        EXPECT_EQ(Call({CopyAll, source, shared + "/s"}).result, 0);
        EXPECT_EQ(Call({CopyAll, tree->Path("s/d/f"), shared + "/f"}).result, 0);
        EXPECT_EQ(Lstat(shared + "/s").st_mode & 07777, top) << name;
        EXPECT_EQ(Lstat(shared + "/s/d").st_mode & 07777, below) << name;
        EXPECT_EQ(Lstat(shared + "/s/d/f").st_mode & 07777, file) << name;
        EXPECT_EQ(Lstat(shared + "/f").st_mode & 07777, file) << name;
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

/// New objects inherit the default list of their directory. Its named users must not reach a copy.
TEST_F(AccessTest, CopyDoesNotKeepTheListOfItsDirectory) {
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
    const struct {
        const char* options;
        int error;  ///< of requests that name an owner
        uid_t owner;
        mode_t mode;
    } rows[] = {
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
        ASSERT_TRUE(Shell("bindfs " + std::string(options) + " ~ mounted"));
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
