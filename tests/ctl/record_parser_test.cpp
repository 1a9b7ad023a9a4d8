// Records out of bytes: hostile paths and values, damage, growing files, and what the daemon itself writes.
#include "record_parser.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <regex>
#include <tuple>

#include "error_record.h"
#include "record_file.h"
#include "records.h"
#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

const std::string kTail = ",user:,group:,perm:,recurseOpt:,errno:1,times:20240131235959;";
const std::string kIsDir = "type:ISDIR,src:/a,dst:" + kTail;
const std::string kFlags = " inode flags:00000000000000000000000000010000;";
const std::string kValue = "llistxattr /s:key=user.k,val=";

std::string Gone(const std::string& path) {
    return "lstat " + path + ":errno=2;llistxattr " + path + ":errno=2;" + path + " realpath errno=2;";
}
/// From SRC to /p/d; nine snapshots and those of the attributes.
std::string Copy(const std::string& src, const std::string& attributes) {
    return "type:COPY,src:" + src + ",dst:/p/d" + kTail + "lstat " + src + ":errno=2;" + attributes + src + kFlags +
           Gone("/p/d") + Gone("/p") + "capget errno=1;";
}

/// "TYPE SRC>DST/SNAPSHOTS" for each record, with "?" where it is ambiguous, and "~LENGTH" for skipped bytes.
std::string Told(const ParsedRecords& parsed, bool tellsDoubts = true) {
    std::string text;
    for (const Record& record : parsed.records) {
        text += (text.empty() ? "" : " ") + record.type + " " + record.src + ">" + record.dst + record.refusedField +
                "/" + std::to_string(record.snapshots.size()) + (record.isAmbiguous && tellsDoubts ? "?" : "");
    }
    for (const SkippedBytes& bytes : parsed.skipped) {
        text += (text.empty() ? "~" : " ~") + std::to_string(bytes.length);
    }
    return text;
}

TEST(RecordParserTest, HostileDamagedAndGrowingBytes) {
    const std::string copy = Copy("/s", "llistxattr /s:key=security.selinux,val=u:r:t:s0:c1,c2;");
    const std::string evil = std::string(9000, 'd') + ",dst:/x" + kTail + "lstat /s:errno=2;" + kIsDir;
    const std::vector<std::tuple<const char*, std::string, std::string>> rows = {
        {"keys in src", Copy(evil, ""), "COPY " + evil + ">/p/d/9"},
        {"in dst", "type:COPY,src:/s,dst:" + evil + kTail + Gone("/s") + Gone(evil), "COPY /s>" + evil + "/6"},
        {"in src alone", "type:ISDIR,src:/x,dst:" + kTail + "y,dst:" + kTail, "ISDIR /x,dst:" + kTail + "y>/0?"},
        {"record in src", "type:ISDIR,src:/s;" + kIsDir, "ISDIR /s;type:ISDIR,src:/a>/0?"},
        {"two ways to split", "type:COPY,src:/s,dst:/t,dst:/d" + kTail, "COPY /s>/t,dst:/d/0?"},
        {"all in a value", Copy("/s", kValue + "a;/s" + kFlags + "b;" + kIsDir + "b;"), "COPY /s>/p/d/10"},
        {"two values", Copy("/s", kValue + "a,val=b;"), "COPY /s>/p/d/10?"},
        {"last value", "type:RMDIR,src:/s,dst:" + kTail + "lstat /s:errno=2;" + kValue + "a;b;", "RMDIR /s>/2"},
        {"cut in a label", copy.substr(0, copy.find("c1")) + copy, "COPY /s>/p/d/1 COPY /s>/p/d/10? ~48"},
        {"cut behind it", copy.substr(0, copy.find("/s inode")) + copy, "COPY /s>/p/d/2 COPY /s>/p/d/10"},
        {"cut in a path", kIsDir.substr(0, 17) + kIsDir, "ISDIR /a>/0? ~17"},
        {"no begin", copy.substr(30) + kIsDir + copy.substr(240) + kIsDir, "ISDIR /a>/0 ISDIR /a>/0 ~314 ~104"},
        {"zeros", kIsDir + std::string(50, '\0') + kIsDir + "\nx\n", "ISDIR /a>/0 ISDIR /a>/0 ~50 ~2"},
        {"newlines", std::regex_replace(copy + kIsDir, std::regex(";"), ";\n"), "COPY /s>/p/d/10 ISDIR /a>/0"},
        {"newer type", "type:LINK,src:/s,dst:/d" + kTail + "ret=1;" + Gone("/s") + kIsDir, "LINK /s>/d/4 ISDIR /a>/0"},
    };
    for (const auto& [name, bytes, told] : rows) {
        ParsedRecords whole = ParseRecords(bytes, Input::Whole);
        EXPECT_EQ(Told(whole), told) << name << ": " << bytes;
        whole.skipped.clear();
        for (std::size_t first = 0; first < std::min<std::size_t>(bytes.size(), 2000); first += 3) {
            ParsedRecords all = ParseRecords(bytes.substr(0, first), Input::Growing);
            const std::vector<Record> rest = ParseRecords(bytes.substr(all.consumed), Input::Whole).records;
            all.records.insert(all.records.end(), rest.begin(), rest.end());
            all.skipped.clear();
            ASSERT_EQ(Told(all, false), Told(whole, false)) << name << ", " << first << " bytes first";
        }
    }
}

/// Quadratic work would take minutes.
TEST(RecordParserTest, HostileBytesCostNoMoreThanTheirNumber) {
    const std::string value = "type:RMDIR,src:/s,dst:" + kTail + "lstat /s:errno=2;" + kValue;
    for (const std::string text : {"type:COPY,src:", ",errno:1,times:20240131235959;", value.c_str(), ";/ "}) {
        std::string bytes = value;
        while (bytes.size() < 1U << 20U) {
            bytes += text;
        }
        bytes += ",dst:" + kTail + "lstat " + bytes + kIsDir;
        EXPECT_EQ(ParseRecords(bytes, Input::Whole).consumed, bytes.size()) << text;
    }
}

TEST(RecordParserTest, ReadsWhatTheDaemonWrites) {
    if (!std::filesystem::is_directory("/data")) {
        GTEST_SKIP() << "needs privilege: /data";
    }
    ClearRecords();
    ScratchTree tree;
    const std::string src = tree.File("a,dst:b;type:COPY,src:c\n");
    const std::string dst = tree.Link("d" + kTail, src);
    const std::string value = "x;llistxattr " + src + ":errno=1;" + src + " inode flags:0;";
    ASSERT_EQ(setxattr(src.c_str(), "user.k,;:", value.data(), value.size(), 0), 0);
    RecordMoveErr(src, dst, 1, RECORD_KIND_AB);
    RecordChownErr(dst, 0, 4294967295, 1, RECORD_KIND_AB);
    RecordHandleCmdErr("INVALID_MODE", "perm", "-,;times:1;", RECORD_KIND_AB);
    const ParsedRecords parsed = ParseRecords(ReadFile(AB_FILE), Input::Whole);
    EXPECT_EQ(Told(parsed), "MOVE " + src + ">" + dst + "/13 CHOWN " + dst + ">/4 INVALID_MODE >perm/0");
    EXPECT_EQ(std::get<AttributeSnapshot>(parsed.records[0].snapshots[1]).value, value);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
