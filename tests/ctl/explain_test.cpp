// Numbers of a record in words, causes, and the roles of its paths.
#include "explain.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <sstream>
#include <tuple>

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

TEST(ExplainTest, NumbersInWords) {
    StatSnapshot stat{"", 0, 0xfd00, 12, 040750, 1, 0, 1000, 0x103, 4096, 4096, 8};
    EXPECT_EQ(StatInWords(stat), "drwxr-x--- 0:1000 4096 B 8 blocks ino 12 dev 253:0");
    stat.mode = 027741;
    EXPECT_EQ(StatInWords(stat), "crwsr-S--t 0:1000 1:3 8 blocks ino 12 dev 253:0");
    EXPECT_EQ(InodeFlagsInWords(0x729bdcff).substr(0, 22), "suSDiadAcEjItTeCxFNPVm");
    EXPECT_EQ(InodeFlagsInWords(0x80080110), "----i---------e------- immutable, extents, 0x80000100");
    EXPECT_EQ(CapabilityReadings("2001").at(0).names, "cap_chown,41");
    EXPECT_EQ(CapabilityReadings("111").at(1).names, "cap_chown,cap_mac_override,cap_block_suspend");
    EXPECT_EQ(CapabilityReadings("2011").size(), 1U) << "the other reading has unknown capabilities";
    EXPECT_TRUE(CapabilityReadings("1000000001").empty()) << "no half has leading zeros";
}

/// A record of an operation from /a/s to /b/d with snapshots of the objects in `words`. The letter before each path is
/// the kind of object: "d" a directory, "f" a file, "o" a file of user 8, "l" a link, "p" a pipe, "t" a sticky
/// directory of user 5, "x" a missing object, "e" one that may not be looked at. "!" after the letter adds the
/// immutable flag, "+" the append-only flag.
/// "=DIGITS" is the daemon, running as user 9, with these capabilities.
Record Failed(const std::string& type, int error, const std::string& words) {
    const std::map<char, std::uint32_t> modes = {{'d', 040755}, {'l', 0120777}, {'p', 010644}, {'t', 041777}};
    Record record;
    record.type = type;
    record.errorNumber = error;
    record.src = "/a/s";
    record.dst = type == "MOVE" || type == "COPY" ? "/b/d" : "";
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        if (word[0] == '=') {
            record.snapshots.emplace_back(ProcessSnapshot{0, 9, 9, word.substr(1), "00", "00"});
            continue;
        }
        const std::string path = word.substr(word.find('/'));
        const char kind = word[0];
        const std::uint32_t mode = modes.count(kind) != 0 ? modes.at(kind) : 0100644;
        const std::uint32_t uid = kind == 'o' ? 8 : kind == 't' ? 5 : 0;
        const std::uint32_t flags = word[1] == '!' ? 0x10 : word[1] == '+' ? 0x20 : 0;
        const int missing = kind == 'x' ? ENOENT : kind == 'e' ? EACCES : 0;
        const StatSnapshot stat{path, missing, 1, path.size(), mode, 1, uid};
        const AttributeSnapshot label{path, missing, missing == 0 ? "security.selinux" : "", "u:" + path};
        record.snapshots.insert(record.snapshots.end(), {stat, label, FlagsSnapshot{path, "", missing, flags}});
    }
    return record;
}

TEST(ExplainTest, FindsCertainCauses) {
    const std::vector<std::tuple<std::string, int, std::string, std::string>> rows = {
        {"MOVE", EPERM, "f!/a/s f/b/d d/a d/b", "the source /a/s has the immutable flag"},
        {"MOVE", EPERM, "f/a/s x/b/d d+/a d/b", "the source's parent directory /a has the append-only flag"},
        {"MOVE", EPERM, "l!/a/s x/b/d d/a d+/b", ""},
        {"COPY", EPERM, "f!/a/s x/b/d d!/b", "the destination's parent directory /b has the immutable flag"},
        {"CHOWN", EPERM, "f/a/s =10", "the daemon does not have cap_chown and does not own /a/s"},
        {"MOVE", ENOENT, "f/a/s x/b/d d/a x/b", "the destination's parent directory /b does not exist"},
        {"MOVE", ENOENT, "x/a/s x/b/d d/a d/b", "the source /a/s does not exist"},
        {"MOVE", ENOTDIR, "f/a/s x/b/d d/a f/b", "the destination's parent directory /b is a regular file"},
        {"COPY", EINVAL, "p/a/s x/b/d d/b", "the source /a/s is a pipe: only files and directories are copied"},
        {"COPY", EACCES, "f/a/s o/b/d t/b =00",
         "the daemon may not write to the destination /b/d: -rw-r--r-- 8:0, and the daemon, user 9, does not have "
         "cap_dac_override"},
        {"MOVE", EACCES, "f/a/s x/b/d d/a d/b =00",
         "the daemon may not write to the source's parent directory /a: drwxr-xr-x 0:0, and the daemon, user 9, does "
         "not "
         "have cap_dac_override"},
        {"CHOWN", EACCES, "e/a/s =00",
         "the daemon may not search a directory above /a/s, and does not have cap_dac_override"},
        {"COPY", EROFS, "f/a/s x/b/d d/b", "the file system of /b is read-only"},
        {"COPY", EUCLEAN, "f/a/s x/b/d d/b", "the file system of /b is damaged; check it with fsck"},
        {"MOVE", EMLINK, "d/a/s x/b/d d/a d/b",
         "the destination's parent directory /b cannot hold more subdirectories on its file system"},
        {"COPY", EACCES, "f/a/s o/b/d t/b =1ffffffffff",
         "fs.protected_regular, or a security module: the destination /b/d is another user's file in a sticky "
         "directory; labels: /a/s u:/a/s, /b/d u:/b/d, /b u:/b"},
        {"COPY", EACCES, "f/a/s x/b/d l/b =1ffffffffff",
         "denied by a security module, the file system's server, or fs.protected_symlinks; labels: /a/s u:/a/s"},
        {"COPY", EACCES, "f/a/s x/b/d d/b =1ffffffffff",
         "denied by a security module, or by the file system's server; labels: /a/s u:/a/s, /b u:/b"},
    };
    for (const auto& [type, error, snapshots, cause] : rows) {
        EXPECT_EQ(LikelyCause(Failed(type, error, snapshots)).text, cause) << type << " " << snapshots;
    }
    Record record = Failed("ISDIR", ENOTDIR, "");
    record.src = "/a/s/";
    EXPECT_EQ(LikelyCause(record).text, "/a/s/ or something above it is not a directory");
    record = Failed("MKDIR", EROFS, "");
    record.src = "/proc/new";
    EXPECT_EQ(LikelyCause(record).word, "kernel-file-system");
    record.src = "/sys/fs/cgroup/new";
    EXPECT_EQ(LikelyCause(record).word, "read-only");
}

TEST(ExplainTest, NamesACommandWhereTheRecordShowsNoCause) {
    const std::tuple<std::string, int, std::string, std::string> rows[] = {
        {"MKDIR", EPERM, "", "lsattr -d /a (this record holds no inode flags)"},
        {"RMDIR", EPERM, "", "lsattr -d /a/s /a; swapon --show (this record holds no inode flags)"},
        {"REMOVE", EPERM, "f/a/s", "lsattr -d /a/s /a; swapon --show (this record holds no inode flags)"},
        {"REMOVE", EPERM, "d/a/s", "lsattr -d /a; lsattr -Ra /a/s (an object below may be immutable)"},
        {"REMOVE", EBUSY, "d/a/s", "findmnt -o TARGET | grep -F /a/s (a mount point below it)"},
        {"COPY", EINVAL, "d/a/s x/b/d d/b", "find /a/s ! -type f ! -type d (objects that are not copied)"},
        {"MOVE", EPERM, "f!/a/s x/b/d d/a d/b", ""},
    };
    for (const auto& [type, error, snapshots, command] : rows) {
        EXPECT_EQ(ToCheck(Failed(type, error, snapshots)), command) << type << " " << snapshots;
    }
    Record record = Failed("MKDIR", EPERM, "");
    record.src = "/it's;reboot/s";
    EXPECT_EQ(ToCheck(record), "lsattr -d '/it'\\''s;reboot' (this record holds no inode flags)");
}

TEST(ExplainTest, RolesOfPaths) {
    const std::tuple<const char*, const char*, const char*, std::string_view> rows[] = {
        {"/a/s", "", "/a/s", "object"},
        {"/a/s", "", "/a", "parent directory"},
        {"/a/s/", "/b/d", "/a/s/", "source"},
        {"/a/s/", "/b/d", "/a", "source's parent directory"},
        {"s", "/b/d//", "/b", "destination's parent directory"},
        {"s", "/b/d", ".", "source's parent directory"},
        {"/a/s", "/a/d/", "/a", "parent directory"},
        {"/a/s", "/b/d", "/a/s/x", ""},
    };
    for (const auto& [src, dst, path, role] : rows) {
        Record record;
        record.src = src;
        record.dst = dst;
        EXPECT_EQ(RoleOf(record, path), role) << src << " " << dst << " " << path;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Reader
