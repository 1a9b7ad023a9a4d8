// What no request can reach, and decoding by table.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "identity.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "prepare_dir.h"
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

TEST(DecodeTest, NumbersAndNames) {
    const struct {
        const char* text;
        int id;
        int err;  ///< -1: untouched
        const char* record;
    } rows[] = {
        {"0", 0, -1, ""},
        {"1000", 1000, -1, ""},
        {"4294967297", 1, -1, ""},
        {"4294967295", -1, -1, ""},
        {"99999999999999999999999", -1, -1, ""},
        {"", -1, 7, "STRTOUL"},
        {"00", -1, 7, "STRTOUL"},
        {"4294967296", -1, 7, "STRTOUL"},
        {"root", 0, -1, ""},
        {"1000a", -1, ENOENT, "GETNAM"},
        {"-1", -1, ENOENT, "GETNAM"},
        {nullptr, -1, EINVAL, "IS_NULL"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text == nullptr ? "null" : row.text);
        for (const bool isUser : {true, false}) {
            ClearRecords();
            errno = 7;
            int err = -1;
            EXPECT_EQ((isUser ? DecodeUid : DecodeGid)(row.text, err, RECORD_KIND_AB), row.id);
            EXPECT_EQ(err, row.err);
            std::string code = row.record;
            if (code == "GETNAM") {
                code = isUser ? "GETPWNAM" : "GETGRNAM";
            }
            ASSERT_EQ(Records().size(), code.empty() ? 0U : 1U);
            if (!code.empty()) {
                EXPECT_EQ(Records()[0].find("type:" + std::string(isUser ? "UID_" : "GID_") + code + ","), 0U);
            }
        }
    }
}

TEST(ArgumentTest, RefusedBeforeAnythingIsTouched) {
    ScratchTree tree;
    const std::string file = tree.File("f", "", 0640);
    const PathPara options{file, 1, 1, 0600, 3};
    const struct {
        const char* name;
        int (*operation)(const std::string& path, const PathPara& para, int& err);
        PathPara para;
        int result;
        const char* record;
    } rows[] = {
        {"owner not given", [](auto&, auto& p, int& e) { return ChOwn(p, e, 3); }, {file, 1, NOT_GIVEN, 0, 3}, -1, ""},
        {"mode not given", [](auto&, auto& p, int& e) { return ChMod(p, e, 3); }, {file, 1, 1, NOT_GIVEN, 3}, -1, ""},
        {"chown", [](auto&, auto& p, int& e) { return ChOwn(p, e, 3); }, options, -1, "INVALID_RECURSEOPT_CHOWN"},
        {"chmod", [](auto&, auto& p, int& e) { return ChMod(p, e, 3); }, options, -1, "INVALID_RECURSEOPT_CHMOD"},
        {"restorecon", [](auto& f, auto& p, int& e) { return RestoreCon(f, p.recurseOpt, e, 3); }, options, -1,
         "INVALID_RECURSEOPT_RESTORECON"},
        {"restorecon 0", [](auto& f, auto&, int& e) { return RestoreCon(f, 0, e, 3); }, options, -1, ""},
        {"mkdir, exists", [](auto& f, auto& p, int& e) { return MkDir(f, p.recurseOpt, e, 3); }, options, 0, ""},
        {"prepare, exists", [](auto&, auto& p, int& e) { return PrepareDir(p, e, 3); }, options, 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ClearRecords();
        int err = 0;
        EXPECT_EQ(row.operation(file, row.para, err), row.result);
        EXPECT_EQ(err, row.result == 0 ? 0 : EINVAL);
        const std::string code = row.record;
        ASSERT_EQ(Records().size(), code.empty() ? 0U : 1U);
        if (!code.empty()) {
            EXPECT_EQ(Records()[0].find("type:" + code + ",src:" + file + ",dst:,user:,group:,perm:,recurseOpt:3,"),
                      0U);
        }
        EXPECT_EQ(Lstat(file).st_mode & 07777, 0640U);
        EXPECT_EQ(Lstat(file).st_uid, 0U);
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
