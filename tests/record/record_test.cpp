// What a record contains, which file it goes to, and when a kernel-log dump follows it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "error_record.h"
#include "path_para.h"
#include "record_file.h"
#include "records.h"
#include "scratch_tree.h"
#include "snapshot.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

struct RecordTest : testing::Test {
    void SetUp() override {
        if (!fs::is_directory("/data")) {
            GTEST_SKIP() << "needs privilege: /data";
        }
        ClearRecords();
    }
};

// The snapshots of objects that do not exist.
std::string StatAndXattr(const std::string& path) {
    return "lstat " + path + ":errno=2;llistxattr " + path + ":errno=2;";
}
std::string All(const std::string& path) {
    return StatAndXattr(path) + path + " realpath errno=2;";
}

TEST_F(RecordTest, ComposersWriteTheirSnapshotsInOrderAndThenTheDump) {
    const std::string s = "/data/none/s";
    const std::string d = "/data/gone/d";
    const std::string paths = ",src:" + s + ",dst:" + d + ",user:,group:,perm:,recurseOpt:,errno:";
    const std::string path = ",src:" + s + ",dst:,user:,group:,perm:,recurseOpt:,errno:";
    const std::string copied = All(s) + All(d) + All("/data/gone") + GetProcStat();
    const std::string moved = All(s) + All(d) + All("/data/none") + All("/data/gone") + GetProcStat();
    const std::string owned = All(s) + GetProcStat();
    const std::string labelled = StatAndXattr(s) + StatAndXattr("/data/none");
    const std::tuple<std::function<void(int kind)>, std::string, std::string> rows[] = {
        {[=](int k) { RecordCopyErr(s, d, 13, k); }, "COPY" + paths + "13;" + copied, ""},
        {[=](int k) { RecordCopyErr(s, d, 22, k); }, "COPY" + paths + "22;" + copied, "COPY"},
        {[=](int k) { RecordCopyErr(s, d, 1, k); }, "COPY" + paths + "1;" + copied, "COPY"},
        {[=](int k) { RecordMoveErr(s, d, 22, k); }, "MOVE" + paths + "22;" + moved, ""},
        {[=](int k) { RecordMoveErr(s, d, 1, k); }, "MOVE" + paths + "1;" + moved, "MOVE"},
        {[=](int k) { RecordChownErr(s, 0, NOT_GIVEN, 2, k); },
         "CHOWN,src:" + s + ",dst:,user:0,group:4294967295,perm:,recurseOpt:,errno:2;" + owned, ""},
        {[=](int k) { RecordChownErr(s, 0, 1, 22, k); },
         "CHOWN,src:" + s + ",dst:,user:0,group:1,perm:,recurseOpt:,errno:22;" + owned, "CHOWN"},
        {[=](int k) { RecordRestoreConFromParentErr(s, -1, 13, k); },
         "RESTORECON_FROMPARENT" + path + "13;ret=-1;" + labelled, ""},
        {[=](int k) { RecordRestoreConFromParentErr(s, -13, 2, k); },
         "RESTORECON_FROMPARENT" + path + "2;ret=-13;" + labelled, "RESTORECON_FROMPARENT"},
        {[=](int k) { RecordRestoreConFromParentErr(s, -14, 2, k); },
         "RESTORECON_FROMPARENT" + path + "2;ret=-14;" + labelled, "RESTORECON_FROMPARENT"},
        {[=](int k) { RecordMkdirErr(s, 448, 1, k); },
         "MKDIR,src:" + s + ",dst:,user:,group:,perm:700,recurseOpt:,errno:1;" + StatAndXattr("/data/none"), ""},
        {[=](int k) { RecordChmodErr(s, 04755, 22, k); },
         "CHMOD,src:" + s + ",dst:,user:,group:,perm:4755,recurseOpt:,errno:22;" + StatAndXattr(s), ""},
        {[=](int k) { RecordNormalErr("Unlink", s, 1, k); }, "Unlink" + path + "1;" + StatAndXattr(s), ""},
        {[=](int k) { RecordErrForPath("ISDIR", s, -1, k); }, "ISDIR" + path + "-1;", ""},
    };
    for (const auto& [record, text, dump] : rows) {
        ClearRecords();
        record(RECORD_KIND_NONE);
        EXPECT_TRUE(Records().empty() && KernelLogDumps().empty()) << "kind 0 is to write nothing";
        record(RECORD_KIND_AB);
        EXPECT_EQ(std::regex_replace(ReadFile(RECORD_FILE_AB), std::regex(",times:[0-9]{14};"), ";"), "type:" + text);
        EXPECT_EQ(KernelLogDumps().size(), dump.empty() ? 0U : 1U) << text;
        EXPECT_EQ(KernelLogDumps(dump).size(), dump.empty() ? 0U : 1U) << text;
    }
}

TEST_F(RecordTest, KindChoosesTheFile) {
    for (const int kind : {1, 2, 3, 0, 4, -1}) {
        WriteRecordErrToFile("type:" + std::to_string(kind) + ";", kind);
    }
    EXPECT_EQ(Records(RECORD_FILE_UPDATE), Strings{"type:1;"});
    EXPECT_EQ(Records(RECORD_FILE_ZELTO), Strings{"type:2;"});
    EXPECT_EQ(Records(RECORD_FILE_AB), Strings{"type:3;"});
    EXPECT_EQ(Lstat(RECORD_FILE_AB).st_mode & 07777, 0644U);
    fs::remove(RECORD_FILE_UPDATE);
    fs::create_symlink(RECORD_FILE_AB, RECORD_FILE_UPDATE);
    WriteRecordErrToFile("type:LINK;", RECORD_KIND_UPDATE);
    EXPECT_EQ(Records(RECORD_FILE_AB), Strings{"type:3;"}) << "written through a link";
}

TEST_F(RecordTest, RotatesAt256KBAndDropsTheRecordWhenThatFails) {
    ASSERT_TRUE(WriteStringToFile(RECORD_FILE_AB, std::string(252 * 1024, 'x'), SEEK_END));
    ASSERT_EQ(Lstat(RECORD_FILE_AB).st_blocks, 252 * 2) << "the figures below need this allocation";
    WriteRecordErrToFile(std::string(4 * 1024 - 1, 'a'), RECORD_KIND_AB);  // 252 + 3 KB
    EXPECT_TRUE(RotatedFiles().empty());
    {
        ScratchTree guard;
        guard.MakeImmutable(RECORD_FILE_AB);
        WriteRecordErrToFile("type:DROPPED;", RECORD_KIND_AB);
    }
    EXPECT_TRUE(RotatedFiles().empty());
    WriteRecordErrToFile("type:FRESH;", RECORD_KIND_AB);
    ASSERT_EQ(RotatedFiles().size(), 1U);
    EXPECT_TRUE(std::regex_search(RotatedFiles().front(), std::regex("/file_migrate_ab_[0-9]{14}\\.txt$")));
    EXPECT_EQ(ReadFile(RotatedFiles().front()).size(), 256U * 1024 - 1);
    EXPECT_EQ(ReadFile(RECORD_FILE_AB), "type:FRESH;");
}

TEST_F(RecordTest, RotationsWithinASecondReplaceNoFile) {
    for (const std::string content : {"first", "second", "third"}) {
        ASSERT_TRUE(WriteStringToFile(RECORD_FILE_AB, content + std::string(256 * 1024, 'x'), SEEK_SET));
        WriteRecordErrToFile("type:LAST;", RECORD_KIND_AB);
    }
    std::string order;
    for (const std::string& file : RotatedFiles()) {
        order += ReadFile(file).substr(0, 6) + " ";
    }
    EXPECT_EQ(order, "firstx second thirdx ");
    EXPECT_EQ(ReadFile(RECORD_FILE_AB), "type:LAST;");
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
    const std::string file = tree.File("f", std::string(5000, 'x'), 0640);
    ASSERT_EQ(chown(file.c_str(), 7, 9), 0);
    EXPECT_TRUE(std::regex_match(GetStat(file), std::regex("lstat " + file +
                                                           ":st_dev:\\d+,st_ino:\\d+,st_mode:33184,st_nlink:1,"
                                                           "st_uid:7,st_gid:9,st_rdev:0,st_size:5000,st_blksize:4096,"
                                                           "st_blocks:16;")))
        << GetStat(file);
    const std::string link = tree.Link("dangling", "nowhere");
    EXPECT_EQ(GetInodeFlag(link), link + " realpath errno=2;");
    EXPECT_EQ(GetInodeFlag("/dev/null"), "/dev/null ioctl errno=25;");
    tree.MakeImmutable(file);
    const std::string flags = GetInodeFlag(file);
    const std::string head = file + " inode flags:";
    ASSERT_EQ(flags.size(), head.size() + 33);
    EXPECT_EQ(flags[head.size() + 27], '1') << flags;
}

/// Opening has effects on other objects: a terminal could become the daemon's own and end it, a tape is rewound, and a
/// pipe's writer continues.
TEST(SnapshotTest, WhatIsNoFileOrDirectoryIsNotOpened) {
    ScratchTree tree;
    const UniqueFd master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(master && grantpt(master.Get()) == 0 && unlockpt(master.Get()) == 0);
    const std::string terminal = ptsname(master.Get()), pipe = tree.Path("p"), socket = tree.Path("s");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600) + mknod(socket.c_str(), S_IFSOCK | 0600, 0), 0);
    const UniqueFd opens(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    for (const std::string& path : {terminal, pipe}) {
        ASSERT_GE(inotify_add_watch(opens.Get(), path.c_str(), IN_OPEN), 0);
        EXPECT_EQ(GetInodeFlag(path), path + " ioctl errno=25;");
    }
    EXPECT_EQ(GetInodeFlag(socket), socket + " open errno=6;");
    inotify_event event{};
    EXPECT_EQ(read(opens.Get(), &event, sizeof(event)), -1) << "an event, or EINVAL for one with a name";
}

/// Without effective capabilities and as another user, all fields differ.
TEST(SnapshotTest, ProcessHasItsIdsAndBothHalvesOfItsCapabilities) {
    std::smatch permitted;
    const std::string status = ReadFile("/proc/self/status");
    ASSERT_TRUE(std::regex_search(status, permitted, std::regex("CapPrm:\t0*([0-9a-f]+)([0-9a-f]{8})\n")));
    ASSERT_EQ(setegid(9) + seteuid(7), 0);
    const std::string text = GetProcStat();
    ASSERT_EQ(seteuid(0) + setegid(0), 0);
    EXPECT_EQ(text, "file_migrate_orvane proc stat:euid(7),egid(9),eff(0x00),perm(0x" + permitted.str(1) +
                        permitted.str(2) + "),inh(0x00);");
}

/// At three in the afternoon, which a 12-hour clock would not show.
TEST(RecordTextTest, HexAndTime) {
    EXPECT_EQ(DecToHex(255) + DecToHex(0) + DecToHex(-1), "ff0ffffffff");
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    gmtime_r(&now, &local);
    const int shift = 15 - local.tm_hour;
    const std::string zone = "TST" + std::to_string(-shift);
    setenv("TZ", zone.c_str(), 1);
    char text[15] = "";
    const std::time_t shifted = now + shift * 3600;
    std::strftime(text, sizeof(text), "%Y%m%d%H%M%S", gmtime_r(&shifted, &local));
    const std::string written = GetCurrentTimeStr();
    unsetenv("TZ");
    EXPECT_TRUE(written >= text && written <= std::to_string(std::stoull(text) + 100)) << written << " " << text;
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
