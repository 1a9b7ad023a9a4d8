// Parsing: hostile paths and values, damage, growing files, and what the daemon writes.
#include "record_parser.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <bitset>
#include <filesystem>
#include <regex>
#include <sstream>
#include <tuple>

#include "error_record.h"
#include "record_file.h"
#include "record_format.h"
#include "record_types.h"
#include "records.h"
#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using namespace Reader;

const std::string LINE_END = ",user:,group:,perm:,recurseOpt:,errno:1,times:20240131235959;";
const std::string IS_DIR_RECORD = "type:ISDIR,src:/a,dst:" + LINE_END;
const std::string INODE_FLAGS = " inode flags:00000000000000000000000000010000;";
const std::string VALUE_HEAD = "llistxattr /s:key=user.k,val=";

std::string Gone(const std::string& path) {
    return "lstat " + path + ":errno=2;llistxattr " + path + ":errno=2;" + path + " realpath errno=2;";
}
/// A record of a copy from `src` to /p/d with nine snapshots and the attributes.
std::string Copy(const std::string& src, const std::string& attributes) {
    return "type:COPY,src:" + src + ",dst:/p/d" + LINE_END + "lstat " + src + ":errno=2;" + attributes + src +
           INODE_FLAGS + Gone("/p/d") + Gone("/p") + "capget errno=1;";
}

/// "TYPE SRC>DST/SNAPSHOTS" for each record, followed by "?" if it is ambiguous, and "~LENGTH" for skipped bytes.
std::string Digest(const ParsedRecords& parsed, bool showsDoubts = true) {
    std::string text;
    for (const Record& record : parsed.records) {
        text += (text.empty() ? "" : " ") + record.type + " " + record.src + ">" + record.dst + record.refusedField +
                "/" + std::to_string(record.snapshots.size()) + (record.isAmbiguous && showsDoubts ? "?" : "");
    }
    for (const SkippedBytes& bytes : parsed.skipped) {
        text += (text.empty() ? "~" : " ~") + std::to_string(bytes.length);
    }
    return text;
}

TEST(RecordParserTest, HostileDamagedAndGrowingBytes) {
    const std::string copy = Copy("/s", "llistxattr /s:key=security.selinux,val=u:r:t:s0:c1,c2;");
    const std::string evil = std::string(9000, 'd') + ",dst:/x" + LINE_END + "lstat /s:errno=2;" + IS_DIR_RECORD;
    const std::vector<std::tuple<const char*, std::string, std::string>> rows = {
        {"keys in src", Copy(evil, ""), "COPY " + evil + ">/p/d/9"},
        {"in dst", "type:COPY,src:/s,dst:" + evil + LINE_END + Gone("/s") + Gone(evil), "COPY /s>" + evil + "/6"},
        {"in src alone", "type:ISDIR,src:/x,dst:" + LINE_END + "y,dst:" + LINE_END,
         "ISDIR /x,dst:" + LINE_END + "y>/0?"},
        {"record in src", "type:ISDIR,src:/s;" + IS_DIR_RECORD, "ISDIR /s;type:ISDIR,src:/a>/0?"},
        {"two ways to split", "type:COPY,src:/s,dst:/t,dst:/d" + LINE_END, "COPY /s>/t,dst:/d/0?"},
        {"all in a value", Copy("/s", VALUE_HEAD + "a;/s" + INODE_FLAGS + "b;" + IS_DIR_RECORD + "b;"),
         "COPY /s>/p/d/10"},
        {"two values", Copy("/s", VALUE_HEAD + "a,val=b;"), "COPY /s>/p/d/10?"},
        {"last value", "type:RMDIR,src:/s,dst:" + LINE_END + "lstat /s:errno=2;" + VALUE_HEAD + "a;b;", "RMDIR /s>/2"},
        {"cut in a label", copy.substr(0, copy.find("c1")) + copy, "COPY /s>/p/d/1 COPY /s>/p/d/10? ~48"},
        {"cut after a label", copy.substr(0, copy.find("/s inode")) + copy, "COPY /s>/p/d/2 COPY /s>/p/d/10"},
        {"cut in a path", IS_DIR_RECORD.substr(0, 17) + IS_DIR_RECORD, "ISDIR /a>/0? ~17"},
        {"no begin", copy.substr(30) + IS_DIR_RECORD + copy.substr(240) + IS_DIR_RECORD,
         "ISDIR /a>/0 ISDIR /a>/0 ~314 ~104"},
        {"zeros", IS_DIR_RECORD + std::string(50, '\0') + IS_DIR_RECORD + "\nx\n", "ISDIR /a>/0 ISDIR /a>/0 ~50 ~2"},
        {"newlines", std::regex_replace(copy + IS_DIR_RECORD, std::regex(";"), ";\n"), "COPY /s>/p/d/10 ISDIR /a>/0"},
        {"newer type", "type:LINK,src:/s,dst:/d" + LINE_END + "ret=1;" + Gone("/s") + IS_DIR_RECORD,
         "LINK /s>/d/4 ISDIR /a>/0"},
    };
    for (const auto& [name, bytes, expected] : rows) {
        ParsedRecords whole = ParseRecords(bytes, Input::Whole);
        EXPECT_EQ(Digest(whole), expected) << name << ": " << bytes;
        whole.skipped.clear();
        for (std::size_t first = 0; first < std::min<std::size_t>(bytes.size(), 2000); first += 3) {
            ParsedRecords all = ParseRecords(bytes.substr(0, first), Input::Growing);
            const std::vector<Record> rest = ParseRecords(bytes.substr(all.consumed), Input::Whole).records;
            all.records.insert(all.records.end(), rest.begin(), rest.end());
            all.skipped.clear();
            ASSERT_EQ(Digest(all, false), Digest(whole, false)) << name << ", " << first << " bytes first";
        }
    }
}

/// Without its budget the parser examines thousands of bytes for each byte of three of these texts.
TEST(RecordParserTest, HostileBytesCostLinearWork) {
    const std::string value = "type:RMDIR,src:/s,dst:" + LINE_END + "lstat /s:errno=2;" + VALUE_HEAD;
    for (const std::string text : {"type:COPY,src:", ",errno:1,times:20240131235959;", value.c_str(), ";/ "}) {
        std::string bytes = value;
        while (bytes.size() < 1U << 15U) {
            bytes += text;
        }
        bytes += ",dst:" + LINE_END + "lstat " + bytes + IS_DIR_RECORD;
        const ParsedRecords parsed = ParseRecords(bytes, Input::Whole);
        EXPECT_EQ(parsed.consumed, bytes.size()) << text;
        EXPECT_LE(parsed.work / bytes.size(), 192U) << text;
    }
}

void Write(std::ostream& out, const Snapshot& snapshot) {
    if (const auto* s = std::get_if<StatSnapshot>(&snapshot); s != nullptr && s->errorNumber == 0) {
        out << "lstat " << s->path << ":st_dev:" << s->device << ",st_ino:" << s->inode << ",st_mode:" << s->mode
            << ",st_nlink:" << s->links << ",st_uid:" << s->uid << ",st_gid:" << s->gid
            << ",st_rdev:" << s->specialDevice << ",st_size:" << s->size << ",st_blksize:" << s->blockSize
            << ",st_blocks:" << s->blocks << ";";
    } else if (s != nullptr) {
        out << "lstat " << s->path << ":errno=" << s->errorNumber << ";";
    } else if (const auto* a = std::get_if<AttributeSnapshot>(&snapshot); a != nullptr && !a->key.empty()) {
        out << "llistxattr " << a->path << ":key=" << a->key << (a->value ? ",val=" : ",no value")
            << a->value.value_or("") << ";";
    } else if (a != nullptr) {
        out << "llistxattr " << a->path << ":errno=" << a->errorNumber << ";";
    } else if (const auto* f = std::get_if<FlagsSnapshot>(&snapshot); f != nullptr && f->failedStep.empty()) {
        out << f->path << " inode flags:" << std::bitset<32>(f->flags) << ";";
    } else if (f != nullptr) {
        out << f->path << " " << f->failedStep << " errno=" << f->errorNumber << ";";
    } else if (const auto* p = std::get_if<ProcessSnapshot>(&snapshot)) {
        out << "file_migrate_orvane proc stat:euid(" << p->euid << "),egid(" << p->egid << "),eff(0x" << p->effective
            << "),perm(0x" << p->permitted << "),inh(0x" << p->inheritable << ");";
    } else {
        out << "ret=" << std::get<LabelResult>(snapshot).ret << ";";
    }
}

/// The text of a record, put together from what was read.
std::string Rewritten(const Record& r) {
    std::ostringstream out;
    out << "type:" << r.type << ",";
    if (!r.errorNumber) {
        out << r.refusedField << ":" << r.refusedValue << ",times:" << r.times << ";";
        return out.str();
    }
    out << "src:" << r.src << ",dst:" << r.dst << ",user:" << r.user << ",group:" << r.group << ",perm:" << r.perm
        << ",recurseOpt:" << r.recurseOpt << ",errno:" << *r.errorNumber << ",times:" << r.times << ";";
    for (const Snapshot& snapshot : r.snapshots) {
        Write(out, snapshot);
    }
    return out.str();
}

TEST(RecordParserTest, ReadsTheRecordsOfEveryComposer) {
    if (!fs::is_directory("/data")) {
        GTEST_SKIP() << "needs privilege: /data";
    }
    ClearRecords();
    ScratchTree tree;
    const std::string src = tree.File("a,dst:b;type:COPY,src:c\n"), dst = tree.Link("d" + LINE_END, src);
    const std::string value = "x;llistxattr " + src + ":errno=1;" + src + " inode flags:0;";
    ASSERT_EQ(setxattr(src.c_str(), "user.k,;:", value.data(), value.size(), 0), 0);
    RecordMoveErr(src, dst, 1, RECORD_KIND_AB);
    RecordHandleCmdErr("INVALID_MODE", "perm", "-,;times:1;", RECORD_KIND_AB);
    FileMigrateRcvMsg request{};
    request.recurseOpt = 2;
    std::size_t written = 2;
    std::string deep;
    while (deep.size() < 1 << 20) {
        deep += "/" + std::string(250, 'n');
    }
    const std::string file = tree.File("file");
    ASSERT_EQ(chown(file.c_str(), 7, 9) + setxattr(file.c_str(), "user.empty", "", 0, 0) +
                  setxattr(file.c_str(), "user.full", "x;y", 3, 0),
              0);
    for (const std::string& path :
         {file, tree.Link("link", "file"), tree.Path("absent"), tree.Dir("dir"),
          tree.Link("dangling", "nowhere") + "/x", std::string("name"), tree.Dir("end") + "/", tree.Path() + deep}) {
        RecordCopyErr(path, tree.Path("new"), 5, RECORD_KIND_AB);
        RecordMoveErr(tree.Path("dir"), path, 5, RECORD_KIND_AB);
        RecordMkdirErr(path, 0700, 5, RECORD_KIND_AB);
        RecordChownErr(path, 0, 1, 5, RECORD_KIND_AB);
        RecordChmodErr(path, 0640, 5, RECORD_KIND_AB);
        RecordRestoreConFromParentErr(path, -13, 5, RECORD_KIND_AB);
        RecordNormalErr("Unlink", path, 5, RECORD_KIND_AB);
        RecordErrForPath("ISDIR", path, 5, RECORD_KIND_AB);
        RecordUidErr("nobody's", 5, RECORD_KIND_AB, "GETPWNAM");
        RecordGidErr(nullptr, 5, RECORD_KIND_AB, "IS_NULL");
        RecordRecurseOptErr("INVALID_RECURSEOPT_MKDIR", path, 3, 5, RECORD_KIND_AB);
        RecordEmptyErr("PARA_EMPTY", &request, 5, RECORD_KIND_AB);
        RecordModErr("TRANSFORM_MODE", "8", 5, RECORD_KIND_AB);
        RecordHandleCmdErr("INVALID_CMD", "cmd", "99", RECORD_KIND_AB);
        written += 14;
    }
    const std::string bytes = ReadFile(RECORD_FILE_AB);
    const ParsedRecords parsed = ParseRecords(bytes, Input::Whole);
    EXPECT_EQ(parsed.records.size(), written);
    EXPECT_TRUE(parsed.skipped.empty());
    EXPECT_TRUE(parsed.records[0].src == src && parsed.records[0].dst == dst);
    EXPECT_EQ(std::get<AttributeSnapshot>(parsed.records[0].snapshots[1]).value, value);
    for (const Record& record : parsed.records) {
        EXPECT_EQ(TypeOf(record.type).name, record.type);
        EXPECT_EQ(Rewritten(record), bytes.substr(record.offset, record.length));
        EXPECT_FALSE(record.isAmbiguous) << record.type << " " << record.src;
        EXPECT_EQ(HasCutPath(record), (record.src + record.dst).find("nnn") != std::string::npos) << record.src;
        EXPECT_LT(record.length, 50'000U) << record.type;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
