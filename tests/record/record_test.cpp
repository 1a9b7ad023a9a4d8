// What a record holds, where it goes, and when a kernel-log dump follows it.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "error_record.h"
#include "record_file.h"
#include "records.h"
#include "scratch_tree.h"
#include "snapshot.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

class RecordTest : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::is_directory("/data")) {
            GTEST_SKIP() << "needs privilege: /data";
        }
        ClearRecords();
    }
};

using Fragments = std::vector<std::string>;

Fragments StatAndXattr(const std::string& path) {
    return {"lstat " + path + ":", "llistxattr " + path + ":"};
}

Fragments All(const std::string& path) {
    return {"lstat " + path + ":", "llistxattr " + path + ":", path + " "};
}

Fragments Join(const std::vector<Fragments>& parts) {
    Fragments joined;
    for (const Fragments& part : parts) {
        joined.insert(joined.end(), part.begin(), part.end());
    }
    return joined;
}

/// The parts of a record behind its information line, each with its ";".
Fragments Split(const std::string& text) {
    Fragments parts;
    for (std::size_t begin = 0, end = 0; (end = text.find(';', begin)) != std::string::npos; begin = end + 1) {
        parts.push_back(text.substr(begin, end + 1 - begin));
    }
    return parts;
}

struct Composed {
    const char* name;
    std::function<void(int recordKind)> record;
    std::string line;     ///< up to the time
    Fragments snapshots;  ///< what the fragments begin with
    std::string dump;     ///< type of the kernel-log dump, if any
};

std::vector<Composed> Compositions() {
    const std::string s = "/data/none/s";
    const std::string d = "/data/gone/d";
    const Fragments process = {"file_migrate_orvane proc stat:euid(0),egid(0),eff(0x"};
    const Fragments copied = Join({All(s), All(d), All("/data/gone"), process});
    const Fragments owned = Join({All(s), process});
    const std::string copy = "type:COPY,src:" + s + ",dst:" + d + ",user:,group:,perm:,recurseOpt:,errno:";
    const std::string move = "type:MOVE,src:" + s + ",dst:" + d + ",user:,group:,perm:,recurseOpt:,errno:";
    const std::string chown = "type:CHOWN,src:" + s + ",dst:,user:0,group:4294967295,perm:,recurseOpt:,errno:";
    const std::string label = "type:RESTORECON_FROMPARENT,src:" + s + ",dst:,user:,group:,perm:,recurseOpt:,errno:";
    const Fragments moved = Join({All(s), All(d), All("/data/none"), All("/data/gone"), process});
    const auto labelled = [&](const char* ret) { return Join({{ret}, StatAndXattr(s), StatAndXattr("/data/none")}); };
    static FileMigrateRcvMsg request{3, "/s", "/d", "me", "us", "", 2};
    return {
        {"copy 13", [=](int k) { RecordCopyErr(s, d, 13, k); }, copy + "13", copied, ""},
        {"copy 22", [=](int k) { RecordCopyErr(s, d, 22, k); }, copy + "22", copied, "COPY"},
        {"copy 1", [=](int k) { RecordCopyErr(s, d, 1, k); }, copy + "1", copied, "COPY"},
        {"move 22", [=](int k) { RecordMoveErr(s, d, 22, k); }, move + "22", moved, ""},
        {"move 1", [=](int k) { RecordMoveErr(s, d, 1, k); }, move + "1", moved, "MOVE"},
        {"chown 2", [=](int k) { RecordChownErr(s, 0, 4294967295U, 2, k); }, chown + "2", owned, ""},
        {"chown 22", [=](int k) { RecordChownErr(s, 0, 4294967295U, 22, k); }, chown + "22", owned, "CHOWN"},
        {"label 1", [=](int k) { RecordRestoreConFromParentErr(s, -1, 13, k); }, label + "13", labelled("ret=-1;"), ""},
        {"label -13", [=](int k) { RecordRestoreConFromParentErr(s, -13, 2, k); }, label + "2", labelled("ret=-13;"),
         "RESTORECON_FROMPARENT"},
        {"mkdir", [=](int k) { RecordMkdirErr(s, 448, 1, k); },
         "type:MKDIR,src:" + s + ",dst:,user:,group:,perm:700,recurseOpt:,errno:1", StatAndXattr("/data/none"), ""},
        {"chmod", [=](int k) { RecordChmodErr(s, 04755, 22, k); },
         "type:CHMOD,src:" + s + ",dst:,user:,group:,perm:4755,recurseOpt:,errno:22", StatAndXattr(s), ""},
        {"normal", [=](int k) { RecordNormalErr("Unlink", s, 1, k); },
         "type:Unlink,src:" + s + ",dst:,user:,group:,perm:,recurseOpt:,errno:1", StatAndXattr(s), ""},
        {"path",
         [=](int k) { RecordErrForPath("ISDIR", s, -1, k); },
         "type:ISDIR,src:" + s + ",dst:,user:,group:,perm:,recurseOpt:,errno:-1",
         {},
         ""},
        {"option",
         [=](int k) { RecordRecurseOptErr("CODE", s, 5, 22, k); },
         "type:CODE,src:" + s + ",dst:,user:,group:,perm:,recurseOpt:5,errno:22",
         {},
         ""},
        {"mode",
         [=](int k) { RecordModErr("TRANSFORM_MODE", "9,;", 0, k); },
         "type:TRANSFORM_MODE,src:,dst:,user:,group:,perm:9,;,recurseOpt:,errno:0",
         {},
         ""},
        {"empty",
         [=](int k) { RecordEmptyErr("PARA_EMPTY", &request, 22, k); },
         "type:PARA_EMPTY,src:/s,dst:,user:me,group:us,perm:,recurseOpt:2,errno:22",
         {},
         ""},
        {"null user",
         [=](int k) { RecordUidErr(nullptr, 22, k, "IS_NULL"); },
         "type:UID_IS_NULL,src:,dst:,user:,group:,perm:,recurseOpt:,errno:22",
         {},
         ""},
        {"group",
         [=](int k) { RecordGidErr("us", 2, k, "GETGRNAM"); },
         "type:GID_GETGRNAM,src:,dst:,user:,group:us,perm:,recurseOpt:,errno:2",
         {},
         ""},
        {"refused",
         [=](int k) { RecordHandleCmdErr("INVALID_CMD", "cmd", "-1", k); },
         "type:INVALID_CMD,cmd:-1",
         {},
         ""},
    };
}

TEST_F(RecordTest, EachComposerWritesItsLineItsSnapshotsAndItsDump) {
    for (const Composed& row : Compositions()) {
        SCOPED_TRACE(row.name);
        ClearRecords();
        row.record(RECORD_KIND_NONE);
        EXPECT_TRUE(Records().empty() && KernelLogDumps().empty()) << "kind 0 is to write nothing";
        row.record(RECORD_KIND_AB);
        const std::string text = ReadFile(AB_FILE);
        ASSERT_EQ(text.substr(0, row.line.size()), row.line);
        const std::string rest = text.substr(row.line.size());
        ASSERT_TRUE(std::regex_search(rest, std::regex("^,times:[0-9]{14};"))) << rest;
        const Fragments fragments = Split(rest.substr(rest.find(';') + 1));
        ASSERT_EQ(fragments.size(), row.snapshots.size()) << text;
        for (std::size_t i = 0; i < fragments.size(); ++i) {
            EXPECT_EQ(fragments[i].substr(0, row.snapshots[i].size()), row.snapshots[i]);
        }
        EXPECT_EQ(KernelLogDumps().size(), row.dump.empty() ? 0U : 1U);
        EXPECT_EQ(KernelLogDumps(row.dump).size(), row.dump.empty() ? 0U : 1U);
    }
}

TEST_F(RecordTest, KindChoosesTheFile) {
    for (const int kind : {1, 2, 3, 0, 4, -1}) {
        WriteRecordErrToFile("type:" + std::to_string(kind) + ";", kind);
    }
    EXPECT_EQ(Records(BI_FILE_OLD), Fragments{"type:1;"});
    EXPECT_EQ(Records(BI_FILE), Fragments{"type:2;"});
    EXPECT_EQ(Records(AB_FILE), Fragments{"type:3;"});
    EXPECT_EQ(Lstat(AB_FILE).st_mode & 07777, 0644U);
}

TEST_F(RecordTest, RotatesAt256KBAndDropsTheRecordWhenThatFails) {
    ASSERT_TRUE(WriteStringToFile(AB_FILE, std::string(252 * 1024, 'x'), SEEK_END));
    ASSERT_EQ(Lstat(AB_FILE).st_blocks, 252 * 2) << "the figures below need this allocation";
    WriteRecordErrToFile(std::string(4 * 1024 - 1, 'a'), RECORD_KIND_AB);  // 252 + 3 KB
    EXPECT_TRUE(RotatedFiles().empty());
    {
        ScratchTree guard;
        guard.MakeImmutable(AB_FILE);
        WriteRecordErrToFile("type:DROPPED;", RECORD_KIND_AB);
    }
    EXPECT_TRUE(RotatedFiles().empty());
    WriteRecordErrToFile("type:FRESH;", RECORD_KIND_AB);
    ASSERT_EQ(RotatedFiles().size(), 1U);
    EXPECT_TRUE(std::regex_search(RotatedFiles().front(), std::regex("/file_migrate_ab_[0-9]{14}\\.txt$")));
    EXPECT_EQ(ReadFile(RotatedFiles().front()).size(), 256U * 1024 - 1);
    EXPECT_EQ(ReadFile(AB_FILE), "type:FRESH;");
}

TEST(SnapshotTest, AttributesInOrderAndAnUnreadableOneRepeatsTheEntryBefore) {
    ScratchTree tree;
    const std::string file = tree.File("f");
    EXPECT_TRUE(std::regex_match(GetXattr(file), std::regex("llistxattr " + file + ":errno=-?[0-9]+;")));
    ASSERT_EQ(setxattr(file.c_str(), "user.cut", "on\0e", 4, 0), 0);
    ASSERT_EQ(setxattr(file.c_str(), "user.none", "", 0, 0), 0);
    const std::string head = "llistxattr " + file + ":key=";
    const std::string cut = head + "user.cut,val=on;";
    char keys[] = "user.gone\0user.cut\0user.gone\0user.none";
    EXPECT_EQ(XattrVal(keys, sizeof(keys), file), cut + cut + head + "user.none,no value;");
    EXPECT_EQ(XattrVal(keys, 0, file), "");
    EXPECT_NE(GetXattr(file).find(cut), std::string::npos);
}

TEST(SnapshotTest, InodeFlagsAndStat) {
    ScratchTree tree;
    const std::string file = tree.File("f", "12345", 0640);
    EXPECT_NE(GetStat(file).find(",st_mode:33184,st_nlink:1,st_uid:0,st_gid:0,st_rdev:0,st_size:5,"),
              std::string::npos);
    const std::string link = tree.Link("dangling", "nowhere");
    EXPECT_EQ(GetInodeFlag(link), link + " realpath errno=2;");
    EXPECT_EQ(GetInodeFlag("/dev/null"), "/dev/null ioctl errno=25;");
    EXPECT_EQ(GetInodeFlag(tree.Pipe("p")), tree.Path("p") + " ioctl errno=25;") << "a pipe is not to block";
    tree.MakeImmutable(file);
    const std::string flags = GetInodeFlag(file);
    const std::string head = file + " inode flags:";
    ASSERT_EQ(flags.size(), head.size() + 33);
    EXPECT_EQ(flags[head.size() + 27], '1') << flags;
}

TEST(RecordTextTest, HexAndTime) {
    EXPECT_EQ(DecToHex(255) + DecToHex(0) + DecToHex(-1), "ff0ffffffff");
    EXPECT_TRUE(std::regex_match(GetCurrentTimeStr(), std::regex("20[0-9]{12}")));
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
