// Numbers of a record in words, causes, and the roles of its paths.
#include "explain.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <sstream>
#include <tuple>

#include "record_format.h"

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

/// A record of an operation from /a/s to /b/d. Each of the `words` adds something to it:
///
///     d/a        snapshots of /a, a directory
///     d!/a d+/a  the same with the immutable flag, with the append-only flag
///     =DIGITS    the daemon, running as user 9, with these capabilities
///     user=u     a field of the line; any name that is not a field makes it a refused request
///
/// The letters of objects: d directory, f file, o file of user 8, l link, k dangling link, p pipe, t sticky directory
/// of user 5, s the same of the daemon's user, u the same that only user 5 may write to, m directory on another file
/// system. Missing objects: x does not exist, e may not be looked at, n is below something that is not a directory.
Record Failed(const std::string& type, int error, const std::string& words) {
    const std::map<char, std::uint32_t> modes = {{'d', 040755}, {'m', 040755}, {'l', 0120777}, {'k', 0120777},
                                                 {'p', 010644}, {'t', 041777}, {'s', 041777},  {'u', 041755}};
    const std::map<char, std::uint32_t> owners = {{'o', 8}, {'t', 5}, {'s', 9}, {'u', 5}};
    const std::map<char, int> errors = {{'x', ENOENT}, {'e', EACCES}, {'n', ENOTDIR}};
    const auto find = [](const auto& map, char key, auto other) {
        const auto found = map.find(key);
        return found == map.end() ? other : found->second;
    };
    Record record;
    record.type = type;
    record.errorNumber = error;
    record.src = "/a/s";
    record.dst = type == "MOVE" || type == "COPY" ? "/b/d" : "";
    const std::map<std::string, std::string*> fields = {{"src", &record.src},   {"dst", &record.dst},
                                                        {"user", &record.user}, {"group", &record.group},
                                                        {"perm", &record.perm}, {"option", &record.recurseOpt}};
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        const std::size_t equals = word.find('=');
        if (equals == 0) {
            record.snapshots.emplace_back(ProcessSnapshot{0, 9, 9, word.substr(1), "00", "00"});
        } else if (equals != word.npos) {
            const auto field = fields.find(word.substr(0, equals));
            (field == fields.end() ? record.refusedValue : *field->second) = word.substr(equals + 1);
            record.refusedField = field == fields.end() ? word.substr(0, equals) : "";
        } else {
            const std::string path = word.substr(word.find('/'));
            const char kind = word[0];
            const std::uint32_t flags = word[1] == '!' ? 0x10 : word[1] == '+' ? 0x20 : 0;
            const int missing = find(errors, kind, 0);
            const std::uint64_t device = kind == 'm' ? 2 : 1;
            const StatSnapshot stat{
                path, missing, device, path.size(), find(modes, kind, 0100644U), 1, find(owners, kind, 0U)};
            const AttributeSnapshot label{path, missing, missing == 0 ? "security.selinux" : "", "u:" + path};
            const FlagsSnapshot bits{path, kind == 'k' ? "realpath" : "", kind == 'k' ? ENOENT : missing, flags};
            record.snapshots.insert(record.snapshots.end(), {stat, label, bits});
        }
    }
    return record;
}

/// At least one row for each rule, each with the whole text and the word that programs read.
TEST(ExplainTest, FindsCertainCauses) {
    const std::string name(256, 'n'), no9 = ", and the daemon, user 9, does not have cap_dac_override";
    std::string path;
    while (path.size() < 4096) {
        path += "/dddddddd";
    }
    const std::vector<std::tuple<std::string, int, std::string, std::string>> rows = {
        {"MOVE", EPERM, "f!/a/s f/b/d d/a d/b", "immutable: the source /a/s has the immutable flag"},
        {"MOVE", EPERM, "f/a/s x/b/d d+/a d/b",
         "append-only: the source's parent directory /a has the append-only flag"},
        {"MOVE", EPERM, "l!/a/s x/b/d d/a d+/b", ""},
        {"COPY", EPERM, "f!/a/s x/b/d d!/b", "immutable: the destination's parent directory /b has the immutable flag"},
        {"COPY", EPERM, "f/a/s f+/b/d d!/b", "append-only: the destination /b/d has the append-only flag"},
        {"CHOWN", EPERM, "f!/a/s =10", "immutable: /a/s has the immutable flag"},
        {"MOVE", EPERM, "f/a/s x/b/d t/a d/b =00",
         "sticky: the source's parent directory /a is sticky; the daemon, user 9, owns neither it nor /a/s and does "
         "not "
         "have cap_fowner"},
        {"MOVE", EPERM, "f/a/s x/b/d s/a d/b =00", ""},
        {"MOVE", EPERM, "f/a/s f/b/d d/a t/b =00",
         "sticky: the destination's parent directory /b is sticky; the daemon, user 9, owns neither it nor /b/d and "
         "does not have cap_fowner"},
        {"CHOWN", EPERM, "f/a/s =10", "no-cap-chown: the daemon does not have cap_chown and does not own /a/s"},
        {"CHOWN", EPERM, "s/a/s user=1 =10", "no-cap-chown: the daemon does not have cap_chown"},
        {"CHOWN", EPERM, "s/a/s user=9 =10", ""},
        {"MKDIR", EPERM, "src=/proc/x",
         "kernel-file-system: /proc/x is in /proc, where the kernel allows no such change"},
        {"COPY", EACCES, "dst=/sys/x",
         "kernel-file-system: the destination /sys/x is in /sys, where the kernel allows no such change"},
        {"MKDIR", EROFS, "src=/proc/new",
         "kernel-file-system: /proc/new is in /proc, where the kernel allows no such change, and it is mounted "
         "read-only for the daemon"},
        {"MKDIR", EROFS, "src=/sys/fs/cgroup/new", "read-only: the file system of /sys/fs/cgroup is read-only"},
        {"COPY", EROFS, "f/a/s x/b/d d/b", "read-only: the file system of /b is read-only"},
        {"COPY", EACCES, "f/a/s o/b/d t/b =00",
         "no-cap-dac-override: the daemon may not write to the destination /b/d: -rw-r--r-- 8:0" + no9},
        {"COPY", EACCES, "f/a/s x/b/d d/b =00",
         "no-cap-dac-override: the daemon may not write to the destination's parent directory /b: drwxr-xr-x 0:0" +
             no9},
        {"MOVE", EACCES, "f/a/s x/b/d d/a d/b =00",
         "no-cap-dac-override: the daemon may not write to the source's parent directory /a: drwxr-xr-x 0:0" + no9},
        {"CHOWN", EACCES, "e/a/s =00",
         "no-cap-dac-override: the daemon may not search a directory above /a/s, and does not have cap_dac_override"},
        {"COPY", EACCES, "f/a/s o/b/d t/b =1ffffffffff",
         "protected-regular: fs.protected_regular, or a security module: the destination /b/d is another user's file "
         "in a sticky directory; labels: /a/s u:/a/s, /b/d u:/b/d, /b u:/b"},
        {"COPY", EACCES, "f/a/s o/b/d u/b =1ffffffffff",
         "denied: denied by a security module, or by the file system's server; labels: /a/s u:/a/s, /b/d u:/b/d, /b "
         "u:/b"},
        {"COPY", EACCES, "f/a/s x/b/d l/b =1ffffffffff",
         "denied: denied by a security module, the file system's server, or fs.protected_symlinks; labels: /a/s "
         "u:/a/s"},
        {"COPY", EACCES, "f/a/s x/b/d d/b =1ffffffffff",
         "denied: denied by a security module, or by the file system's server; labels: /a/s u:/a/s, /b u:/b"},
        {"MOVE", ENOENT, "f/a/s x/b/d d/a x/b", "parent-missing: the destination's parent directory /b does not exist"},
        {"MOVE", ENOENT, "f/a/s x/b/d d/a k/b",
         "dangling-link: the destination's parent directory /b is a symbolic link that leads nowhere"},
        {"MOVE", ENOENT, "x/a/s x/b/d d/a d/b", "source-missing: the source /a/s does not exist"},
        {"CHOWN", ENOENT, "x/a/s",
         "source-missing: /a/s does not exist; a move across file systems does not create links and special files"},
        {"ISDIR", ENOENT, "", "source-missing: /a/s does not exist"},
        {"ISDIR", ENOENT, "src=", "empty-path: the path is empty"},
        {"MOVE", ENOTDIR, "f/a/s x/b/d d/a f/b",
         "not-directory: the destination's parent directory /b is a regular file"},
        {"MOVE", ENOTDIR, "d/a/s f/b/d d/a d/b",
         "directory-onto-other: the source /a/s is a directory, and the destination /b/d is a regular file"},
        {"RMDIR", ENOTDIR, "f/a/s", "not-directory: /a/s is a regular file, not a directory"},
        {"COPY", ENOTDIR, "f/a/s n/b/d", "not-directory: something above /b/d is not a directory"},
        {"ISDIR", ENOTDIR, "src=/a/s/", "not-directory: /a/s/ or something above it is not a directory"},
        {"COPY", EISDIR, "d/a/s f/b/d",
         "directory-onto-other: the source /a/s is a directory, and the destination /b/d is a regular file"},
        {"MOVE", EISDIR, "f/a/s d/b/d",
         "other-onto-directory: the destination /b/d is a directory, and the source /a/s is a regular file"},
        {"Unlink", EISDIR, "d/a/s", "is-directory: /a/s is a directory"},
        {"Unlink", EISDIR, "f/a/s", ""},
        {"MOVE", ENOTEMPTY, "d/a/s d/b/d", "not-empty: the destination /b/d is a directory that is not empty"},
        {"REMOVE", EEXIST, "d/a/s", "not-empty: /a/s is not empty: something in it was not removed"},
        {"COPY", EEXIST, "f/a/s f/b/d", "same-file: the source /a/s and the destination /b/d are the same object"},
        {"COPY", EEXIST, "f/a/s m/b/d", ""},
        {"COPY", EINVAL, "d/a/s dst=/a/s/x", "into-itself: the destination /a/s/x lies inside the source /a/s"},
        {"COPY", EINVAL, "d/a/s dst=/a/sx", ""},
        {"COPY", EINVAL, "p/a/s x/b/d d/b",
         "special-file: the source /a/s is a pipe: only files and directories are copied"},
        {"COPY", EINVAL, "f/a/s l/b/d",
         "destination-link: the destination /b/d is a symbolic link, and the daemon does not write through links"},
        {"COPY", EINVAL, "f/a/s k/b/d", "dangling-link: the destination /b/d is a symbolic link that leads nowhere"},
        {"CHMOD", EOPNOTSUPP, "l/a/s", "link-mode: /a/s is a symbolic link, which has no mode of its own"},
        {"RESTORECON_NORECURSE", EOPNOTSUPP, "f/a/s",
         "no-labels: no label policy is installed, or the file system of /a/s does not support labels"},
        {"MOVE", EXDEV, "f/a/s x/b/d d/a m/b", "other-file-system: /a/s and /b are on different file systems"},
        {"MOVE", EBUSY, "m/a/s x/b/d d/a d/b", "mount-point: the source /a/s is a mount point"},
        {"COPY", ENOSPC, "f/a/s f/b/d d/b", "no-space: no space or no inode is left on the file system of /b/d"},
        {"MKDIR", EDQUOT, "d/a", "quota: the quota on the file system of /a is used up"},
        {"ISDIR", ENAMETOOLONG, "src=/a/" + name + "/b",
         "name-too-long: the name " + name + " is longer than 255 bytes"},
        {"ISDIR", ENAMETOOLONG, "src=" + path, "path-too-long: the path " + path + " is longer than 4095 bytes"},
        {"ISDIR", ELOOP, "", "link-loop: the path goes through too many symbolic links, or they lead in a circle"},
        {"LISTDIR_OPEN", ELOOP, "l/a/s",
         "link-loop: /a/s is a symbolic link that is not followed, or that leads in a circle"},
        {"COPY", ETXTBSY, "f/a/s f/b/d", "busy-file: the destination /b/d is a running program, or swap space in use"},
        {"ISDIR", EMFILE, "", "daemon-descriptors: the daemon had reached its limit of open files"},
        {"ISDIR", ENFILE, "", "system-descriptors: the system had reached its limit of open files"},
        {"ISDIR", EIO, "", "io-error: the disk or its backing store failed; see the kernel log"},
        {"ISDIR", ENOMEM, "", "no-memory: the system had no memory left"},
        {"COPY", EUCLEAN, "f/a/s x/b/d d/b", "corrupt: the file system of /b is damaged; check it with fsck"},
        {"MOVE", EMLINK, "d/a/s x/b/d d/a d/b",
         "too-many-links: the destination's parent directory /b cannot hold more subdirectories on its file system"},
        {"MKDIR", EMLINK, "d/a",
         "too-many-links: the parent directory /a cannot hold more subdirectories on its file system"},
        {"COPY", EFBIG, "f/a/s x/b/d d/b",
         "too-large: the file is larger than the file system of /b or the daemon's own limit allows"},
        {"PARA_EMPTY", 0, "group=g", "missing-argument: no user was given; user, group and mode are required"},
        {"PARA_EMPTY", 0, "user=u", "missing-argument: no group was given; user, group and mode are required"},
        {"PARA_EMPTY", 0, "user=u group=g", "missing-argument: no mode was given; user, group and mode are required"},
        {"TRANSFORM_MODE", 0, "", "missing-argument: no mode was given"},
        {"TRANSFORM_MODE", 0, "perm=8", "bad-mode: \"8\" is not an octal mode, or it is 0"},
        {"UID_STRTOUL", 0, "user=00", "bad-number: the user number 00 evaluates to 0; write it as \"0\""},
        {"GID_GETGRNAM", ERANGE, "group=g", "long-entry: the system's entry for the group g is too long"},
        {"GID_GETGRNAM", ENOENT, "group=g", "no-such-group: there is no group g"},
        {"UID_GETPWNAM", ENOENT, "user=u", "no-such-user: there is no user u"},
        {"UID_GETPWNAM", EIO, "user=u", "io-error: the disk or its backing store failed; see the kernel log"},
        {"INVALID_RECURSEOPT_CHOWN", 0, "option=3",
         "bad-recursion: the recursion option 3 is neither 1 (the path only) nor 2 (everything below it)"},
        {"RECVBUFSIZE", 0, "size=17", "bad-size: the request had 17 bytes; a request has 8288, sent at once"},
        {"RECVBUFSIZE", 0, "size=-1", "not-received: the request could not be received"},
        {"INVALID_STR", 0, "dts=", "bad-text: the field destination has no terminating NUL, or it contains \"../\""},
        {"INVALID_CMD", 0, "cmd=99", "bad-command: there is no command 99"},
        {"INVALID_MODE", 0, "mode=-1", "bad-mode: the mode -1 contains a \"-\""},
        {"INVALID_RECURSEOPT", 0, "recurseOpt=3", "bad-recursion: there is no recursion option 3"},
    };
    for (const auto& [type, error, words, expected] : rows) {
        const Cause cause = LikelyCause(Failed(type, error, words));
        EXPECT_EQ(std::string(cause.word) + (cause.word.empty() ? "" : ": ") + cause.text, expected)
            << type << " " << words;
    }
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
    // A cut path leads nowhere.
    record.src = "/a/" + std::string(RECORD_PATH_LIMIT - 8, 's') + std::string(RECORD_CUT_MARK);
    EXPECT_EQ(ToCheck(record), "");
    EXPECT_EQ(RoleOf(record, "/a"), "directory above");
    record.errorNumber = ENAMETOOLONG;
    EXPECT_EQ(LikelyCause(record).word, "path-too-long");
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
