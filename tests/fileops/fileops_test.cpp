// What no request can reach, and decoding by table.
#include <gtest/gtest.h>

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

TEST(ArgumentTest, WhatIsNotGivenIsRefusedBeforeTheOptionAndWithoutARecord) {
    ClearRecords();
    int err = 0;
    EXPECT_EQ(ChOwn({"/none", 1, NOT_GIVEN, 0, 3}, err, RECORD_KIND_AB), -1);
    EXPECT_EQ(std::exchange(err, 0), EINVAL);
    EXPECT_EQ(ChMod({"/none", 1, 1, NOT_GIVEN, 3}, err, RECORD_KIND_AB), -1);
    EXPECT_EQ(std::exchange(err, 0), EINVAL);
    EXPECT_TRUE(Records().empty());
    EXPECT_EQ(RestoreCon("/none", 3, err, RECORD_KIND_AB), -1);
    EXPECT_EQ(err, EINVAL);
    ASSERT_EQ(Records().size(), 1U) << "unlike option 0, another unknown one is recorded";
    EXPECT_EQ(Records()[0].find("type:INVALID_RECURSEOPT_RESTORECON,src:/none,dst:,user:,group:,perm:,recurseOpt:3,"),
              0U);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
