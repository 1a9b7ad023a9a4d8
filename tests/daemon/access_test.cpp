// Who can reach what a request creates, while it works and afterwards: nobody who could not reach the source.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>
#include <utility>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

namespace fs = std::filesystem;
using enum Command;

constexpr uid_t USER = 1000;
constexpr gid_t GROUP = 7;

class AccessTest : public DaemonTest {
protected:
    std::optional<ScratchTree> second{std::in_place, ScratchTree::On::SecondFs};
};

/// A user makes the destination's file beforehand and keeps it open. What the daemon makes of that name is not his.
TEST_F(AccessTest, FileMadeBeforehandIsReplacedUnlessItsOwnerGetsIt) {
    const struct {
        const char* name;
        Request request;  ///< "s" and "t" in both trees
        uid_t sourceOwner;
        bool isReplaced;
    } rows[] = {
        {"combined copy", {CopyComb, "@s", "@t", "0", "0", "4755"}, 0, true},
        {"combined copy, his", {CopyComb, "@s", "@t", "1000", "0", "755"}, 0, false},
        {"copy", {CopyAll, "@s", "@t"}, 0, true},
        {"copy, his", {CopyAll, "@s", "@t"}, USER, false},
        {"move", {MoveAll, "@s", "~t"}, 0, true},
        {"move, his", {MoveAll, "@s", "~t"}, USER, false},
    };
    for (auto [name, request, sourceOwner, isReplaced] : rows) {
        tree.emplace();
        second.emplace(ScratchTree::On::SecondFs);
        ScratchTree& target = request.dst[0] == '~' ? *second : *tree;
        request.src = tree->File("s", "content", 0600);
        request.dst = target.File("t", "his", 0644);
        ASSERT_EQ(chown(request.src.c_str(), sourceOwner, 0) + chown(request.dst.c_str(), USER, USER), 0);
        const UniqueFd held(open(request.dst.c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(Call(request).result, 0) << name;
        struct stat st {};
        fstat(held.Get(), &st);
        EXPECT_EQ(st.st_ino != Lstat(request.dst).st_ino, isReplaced) << name;
        EXPECT_EQ(ReadFile(request.dst), "content") << name;
        EXPECT_EQ(Lstat(request.dst).st_uid == USER, !isReplaced) << name;
    }
}

/// In a directory with the set-group-ID bit a new file belongs to the directory's group, until a move gives it its
/// owner.
TEST_F(AccessTest, MovedObjectIsPrivateUntilItHasItsOwner) {
    Start({{},
           {"strace", "-fqqo/dev/null", "-etrace=fchown,fchownat,fchmod",
            "-einject=fchown,fchownat,fchmod:delay_enter=50000:delay_exit=50000"}});
    for (const std::string name : {"file", "tree"}) {
        const std::string source = name == "file" ? tree->File("file", "c", 0640) : tree->Dir("tree", 0750);
        const std::string shared = second->Dir("shared"), made = shared + "/" + name;
        ASSERT_EQ(chown(source.c_str(), USER, USER) + chown(shared.c_str(), 0, GROUP) + chmod(shared.c_str(), 02775),
                  0);
        RawClient client;
        client.Send({MoveAll, source, made});
        bool isAnswered = false;
        long looks = 0, open = 0;
        while (!isAnswered) {
            isAnswered = client.Receive(Deadline{1}).has_value();
            struct stat st {};
            if (lstat(made.c_str(), &st) == 0) {
                ++looks;
                open += st.st_gid != USER && (st.st_mode & 077) != 0;
            }
        }
        EXPECT_TRUE(looks > 10 && open == 0) << name << ' ' << open << " of " << looks;
        EXPECT_EQ(Lstat(made).st_mode & 0777, name == "file" ? 0640U : 0750U);
    }
}

/// The group bits of an object with an access ACL are the list's mask: what a named user may do, the group need not.
TEST_F(AccessTest, GroupGetsWhatItsEntryInTheListAllows) {
    // Version, then tag, permissions and id of: the owner, user 1000, the owning group, the mask, all others.
    const unsigned char list[] = {2, 0,   0,   0,   1,   0,   6,  0, 255, 255, 255, 255, 2,   0,  6,
                                  0, 232, 3,   0,   0,   4,   0,  4, 0,   255, 255, 255, 255, 16, 0,
                                  6, 0,   255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};
    for (const auto& [cmd, isDirectory] :
         {std::pair{CopyAll, false}, {CopyAll, true}, {MoveAll, false}, {MoveAll, true}}) {
        tree.emplace();
        second.emplace(ScratchTree::On::SecondFs);
        const std::string source = isDirectory ? tree->Dir("s", 0640) : tree->File("s", "content", 0640);
        ASSERT_EQ(setxattr(source.c_str(), "system.posix_acl_access", list, sizeof(list), 0), 0);
        ASSERT_EQ(Lstat(source).st_mode & 0777, 0660U);
        const std::string made = (cmd == MoveAll ? *second : *tree).Path("t");
        EXPECT_EQ(Call({cmd, source, made}).result, 0);
        EXPECT_EQ(Lstat(made).st_mode & 0777, 0640U) << int(cmd) << isDirectory;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
