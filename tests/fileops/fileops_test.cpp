// Cases that no request can reach, and a table of texts to decode.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <string>
#include <utility>

#include "identity.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "path_para.h"
#include "record_file.h"
#include "records.h"
#include "restorecon.h"
#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

TEST(DirNameTest, AsDirname) {
    for (const auto& [path, parent] :
         {std::pair{"/a/b", "/a"}, {"/a/b/", "/a"}, {"name", "."}, {"/", "/"}, {"", "."}}) {
        EXPECT_EQ(DirName(path), parent) << path;
    }
}

/// "ID ERR TYPE" with the type of the record. ERR is -1 if `err` was not set, and 7 if it was set from an earlier
/// errno.
std::string Decoded(int (*decode)(const char*, int&, int), const char* text) {
    ClearRecords();
    errno = 7;
    int err = -1;
    const int id = decode(text, err, RECORD_KIND_AB);
    const std::string type = Records().empty() ? "" : Records()[0].substr(5, Records()[0].find(',') - 5);
    return std::to_string(id) + " " + std::to_string(err) + " " + type;
}

TEST(DecodeTest, NumbersAndNames) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"0", "0 -1 ", "0 -1 "},
        {"1000", "1000 -1 ", "1000 -1 "},
        {"4294967297", "1 -1 ", "1 -1 "},
        {"4294967295", "-1 -1 ", "-1 -1 "},
        {"99999999999999999999999", "-1 -1 ", "-1 -1 "},
        {"", "-1 7 UID_STRTOUL", "-1 7 GID_STRTOUL"},
        {"00", "-1 7 UID_STRTOUL", "-1 7 GID_STRTOUL"},
        {"4294967296", "-1 7 UID_STRTOUL", "-1 7 GID_STRTOUL"},
        {"root", "0 -1 ", "0 -1 "},
        {"1000a", "-1 2 UID_GETPWNAM", "-1 2 GID_GETGRNAM"},
        {nullptr, "-1 22 UID_IS_NULL", "-1 22 GID_IS_NULL"},
    };
    for (const auto& [text, user, group] : rows) {
        EXPECT_EQ(Decoded(DecodeUid, text), user) << (text == nullptr ? "null" : text);
        EXPECT_EQ(Decoded(DecodeGid, text), group) << (text == nullptr ? "null" : text);
    }
}

/// 1,024 bytes is the limit for an entry. The name exists, so the error is not ENOENT.
TEST(DecodeTest, EntryThatIsTooLong) {
    ScratchTree tree;
    const std::string groups = tree.File("group", "big:x:77:" + std::string(1100, 'm') + "\n");
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "needs privilege: a mount namespace";
    }
    EXPECT_EQ(Decoded(DecodeGid, "big"), "-1 34 GID_GETGRNAM");
    umount2("/etc/group", MNT_DETACH);
}

TEST(ArgumentTest, WhatIsNotGivenIsRefusedBeforeTheOptionAndWithoutARecord) {
    const ScratchTree tree;
    const std::string path = tree.Path("missing");
    ClearRecords();
    int err = 0;
    EXPECT_EQ(ChOwn({path, 1, NOT_GIVEN, 0, 3}, err, RECORD_KIND_AB), -1);
    EXPECT_EQ(std::exchange(err, 0), EINVAL);
    EXPECT_EQ(ChMod({path, 1, 1, NOT_GIVEN, 3}, err, RECORD_KIND_AB), -1);
    EXPECT_EQ(std::exchange(err, 0), EINVAL);
    EXPECT_TRUE(Records().empty());
    EXPECT_EQ(RestoreCon(path, 3, err, RECORD_KIND_AB), -1);
    EXPECT_EQ(err, EINVAL);
    ASSERT_EQ(Records().size(), 1U) << "unlike option 0, another unknown one is recorded";
    EXPECT_EQ(
        Records()[0].find("type:INVALID_RECURSEOPT_RESTORECON,src:" + path + ",dst:,user:,group:,perm:,recurseOpt:3,"),
        0U);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
