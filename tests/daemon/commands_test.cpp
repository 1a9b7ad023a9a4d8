// Sends every command to a running daemon, for its success and for each of its failures. Checks the reply, the log
// lines, the records and the files afterwards.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using enum Command;

constexpr int ANY = -1;                    ///< any error number: the worker's errno is left over from earlier calls
constexpr const char* UNCHANGED = "same";  ///< the files are the same as before the request

/// In all texts, "@" is the tree on /data, "~" the one on the second file system and "%" the reply's error number.
struct Row {
    const char* name;
    /// A shell script that makes the files. If one with chattr or a check for SELinux fails, the row is left out.
    const char* before;
    Command cmd;
    const char* request;  ///< the request's fields in wire order, "-" for an empty one
    int result;
    int errCode = 0;
    const char* traces = "";        ///< the log lines, "Level Function: text", then the result of Recorded()
    const char* after = UNCHANGED;  ///< see CommandsTest::Listing
    const char* strings = "";
};

Request RequestOf(Command cmd, const std::string& text) {
    Request request{cmd};
    std::istringstream words(text + " - - - - -");
    words >> request.src >> request.dst >> request.user >> request.group >> request.perm >> request.recurseOpt;
    for (std::string* field : {&request.src, &request.dst, &request.user, &request.group, &request.perm}) {
        *field = *field == "-" ? "" : *field;
    }
    return request;
}

/// The log lines that the command or the refusal wrote, without the daemon's own routine lines.
std::string LinesOf(const std::string& log) {
    static const std::regex NOISE(
        R"([^\n]*(\[(CreateServer|Epoll|HandlerEpollin|AddFdRef|SubFdRef|\w*ThreadTask|HandleCmd:\d+\] cmd:|SendResMsg)"
        R"(|SendStrPkgs|GetStat|GetXattr|XattrVal|GetInodeFlag|ReadKmsgToFile)|/update/migrate/)[^\n]*\n)");
    static const std::regex HEAD(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ([DIWE]) FileMigrateOrvane: \[(\w+):\d+\] )");
    return std::regex_replace(std::regex_replace(log, NOISE, ""), HEAD, "$1 $2: ");
}

class CommandsTest : public DaemonTest {
protected:
    CommandsTest() { umask(022); }

    void CheckAll(const std::vector<Row>& rows) {
        if (!daemon) {
            Start();
        }
        std::string unprivileged;
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            ClearRecords();
            tree.emplace();
            second.emplace(ScratchTree::On::SecondFs);
            if (Shell(row.before)) {
                Check(row);
                (void)Shell("chattr -R -f -i .");
            } else {
                // On a machine with a label policy, RestoresTheLabelsOfAPolicy replaces the rows that need none.
                EXPECT_TRUE(std::regex_search(row.before, std::regex("chattr|selinux"))) << "the script failed";
                unprivileged += std::strstr(row.before, "chattr") != nullptr ? std::string(" ") + row.name + ";" : "";
            }
        }
        if (!unprivileged.empty()) {
            GTEST_SKIP() << "needs privilege: immutable files for" << unprivileged;
        }
    }

    void Check(const Row& row) {
        const std::string before = Listing();
        const std::size_t logged = daemon->Log().size();
        const Request request = RequestOf(row.cmd, Expand(row.request));
        const Reply reply = Call(request);
        EXPECT_EQ(reply.result, row.result);
        EXPECT_EQ(reply.errCode, row.errCode == ANY ? reply.errCode : row.errCode);
        EXPECT_EQ(reply.Strings(), Expand(row.strings));
        const std::string errCode = std::to_string(reply.errCode);
        const std::string traces = LinesOf(daemon->Log().substr(logged)) + Recorded(request.src, errCode);
        EXPECT_EQ(traces, Expand(row.traces, errCode) + (*row.traces == '\0' ? "" : "\n"));
        EXPECT_EQ(Listing(), row.after == UNCHANGED ? before : row.after);
    }

    /// Runs a script in the tree. @return what it printed, or nullopt if it failed
    [[nodiscard]] std::optional<std::string> Shell(const std::string& script) const {
        // NOLINTNEXTLINE(cert-env33-c): all scripts are written in this file
        FILE* const pipe = popen(Expand("set -e; cd @; " + script).c_str(), "r");
        std::string output;
        for (int c = 0; (c = std::getc(pipe)) != EOF;) {
            output += static_cast<char>(c);
        }
        return pclose(pipe) == 0 ? std::optional(output) : std::nullopt;
    }

    /// Lists both trees as "d/ 700,d/f 1:2,f 4B,l -> target,p|": the type, and the size, mode and owner where they
    /// differ from 0 bytes, 755 or 644, and root.
    [[nodiscard]] std::string Listing() const {
        return *Shell(
            "find @ ~ -mindepth 1 \\( -type l -printf '%p -> %l' -o -type d -printf '%p/ %m' -o -type p -printf '%p|' "
            "-o -printf '%p %sB %m' \\) -printf ' %U:%G\\n' | sed 's,@/,,; s,~/,\\x7e,; s, 0:0$,,; s, 0B,,; s, 644,,; "
            "s,/ 755,/,' | LC_ALL=C sort | paste -sd, | tr -d '\\n'");
    }

    /// A line "TYPE,field:value,..." for each record, then "dump TYPE" for each kernel-log dump. Empty fields are left
    /// out, and so are the request's source and the reply's error number.
    [[nodiscard]] std::string Recorded(const std::string& src, const std::string& errCode) const {
        return *Shell(std::string("exec 2>/dev/null; grep -ao 'type:[^;]*,times:' ") + RECORD_FILE_AB +
                      " | sed -E 's/type://; s|,src:" + src + ",|,|; s/,errno:" + errCode + ",/,/; s/,times://; :a; " +
                      "s/,(dst|user|group|perm|recurseOpt):(,|$)/\\2/; ta'; ls " + DUMP_DIRECTORY +
                      " | sed 's/\\W.*//; s/^/dump /'");
    }

    [[nodiscard]] std::string Expand(std::string text, const std::string& errCode = "%") const {
        for (const auto& [mark, value] : {std::pair{"@", tree->Path()}, {"~", second->Path()}, {"%", errCode}}) {
            text = std::regex_replace(text, std::regex(mark), value);
        }
        return text;
    }

    std::optional<ScratchTree> second{std::in_place, ScratchTree::On::SecondFs};
};

TEST_F(CommandsTest, QueriesAndCreatesDirectories) {
    CheckAll({
        {"exists", "touch f", IsExist, "@/f", 1},
        {"does not exist", "ln -s none l", IsExist, "@/l", 0},
        {"below a file, with an escape byte", "touch f", IsExist, "@/f/a\x1b", -1, ENOTDIR,
         "E IsPathExist: access @/f/a\\x1b failed, errno=%\nISEXIST"},
        {"two dots at the end", "mkdir d", IsDir, "@/d/..", 1},
        {"two dots alone", "", IsDir, "..", 1},
        {"link to a directory", "mkdir d; ln -s d l", IsDir, "@/l", 0},
        {"is-dir, absent", "", IsDir, "@/x", -1, ENOENT, "E IsDir: lstat @/x failed, errno=%\nISDIR"},
        {"list, empty", "mkdir d", ListDir, "@/d", 0},
        {"list, directory", "mkdir -p d/s", ListDir, "@/d", 0, 0, "", UNCHANGED, "s:1"},
        {"list, through a link", "mkdir d; ln -s . d/l; ln -s d k", ListDir, "@/k", 0, 0, "", UNCHANGED, "l:0"},
        {"list, absent", "", ListDir, "@/x", -1, ENOENT, "E ListDir: failed to open dir @/x, errno=%"},
        {"list, file", "touch f", ListDir, "@/f", -1, ENOTDIR,
         "E ListDir: failed to open dir @/f, errno=%\nLISTDIR_OPEN"},
        {"existed path", "mkdir d", ExistedPath, "@/d/x/y", 0, 0, "", UNCHANGED, "@/d"},
        {"existed, below a file", "touch f", ExistedPath, "@/f/x", -1, ENOTDIR,
         "E IsPathExist: access @/f/x failed, errno=%\nGET_EXISTED_PATH"},
        {"used space, absent", "", UsedSpace, "@/x", 0, ENOENT, "E AddBlks: lstat @/x failed, errno=%\nADDBLKS_LSTAT"},
        {"largest, no file", "mkdir d", MaxSize, "@/d", 0},
        {"largest, absent", "", MaxSize, "@/x", -1, ENOENT,
         "E IsDir: lstat @/x failed, errno=%\nE RecMaxSizeRecurse: open dir @/x failed, errno "
         "%\nISDIR\nOPEN_RECMAXSIZERECURSE"},
        {"prepare, recursive", "mkdir -m 700 d", PrepareDir, "@/d/a/b - 1 2 04755 2", 0, 0,
         "I DoPrepareDir: DoPrepareDir @/d/a suc: 1, 2, 4755\nI DoPrepareDir: DoPrepareDir @/d/a/b suc: 1, 2, 4755",
         "d/ 700,d/a/ 4755 1:2,d/a/b/ 4755 1:2"},
        {"prepare, existing", "mkdir d", PrepareDir, "@/d - 1 2 700", 0, 0, "I PrepareDir: dir @/d already exists"},
        {"prepare, all mode bits", "", PrepareDir, "@/d - 0 0 77777777777 1", 0, 0,
         "I DoPrepareDir: DoPrepareDir @/d suc: 0, 0, 37777777777", "d/ 7777"},
        {"prepare, no group", "", PrepareDir, "@/d - 1 - 755 1", -1, EINVAL,
         "E ProcessPrepareDirCmd: dir @/d owner or dac para not provided\nPARA_EMPTY,user:1,perm:755,recurseOpt:1"},
        {"prepare, unknown names", "", PrepareDir, "@/d - xx yy 755 1", -1, ENOENT,
         "E DecodeUid: getpwnam_r xx failed, user not found\nE DecodeGid: getgrnam_r yy failed, group not "
         "found\nE ProcessPrepareDirCmd: decode uid gid for @/d failed: xx "
         "yy\nUID_GETPWNAM,src:,user:xx\nGID_GETGRNAM,src:,group:yy"},
        {"prepare, mode 0", "", PrepareDir, "@/d - 0 0 0 1", -1, ANY,
         "E ProcessPrepareDirCmd: transform mode failed: @/d 0, errno=%\nTRANSFORM_MODE,src:,perm:0"},
        {"prepare, dangling link", "ln -s none l", PrepareDir, "@/l - 1 2 755 1", -1, EOPNOTSUPP,
         "E DoChMod: lchmod @/l 755 failed, errno=%\nE DoPrepareDir: DoPrepareDir @/l failed: 1, 2, "
         "755\nCHMOD,perm:755"},
        {"prepare, no parent", "", PrepareDir, "@/a/b - 0 0 755 1", -1, ENOENT,
         "E DoMkDir: mkdir @/a/b 700 failed, errno=%\nE DoPrepareDir: DoPrepareDir @/a/b failed: 0, 0, "
         "755\nMKDIR,perm:700"},
        {"prepare, option 0", "touch f", PrepareDir, "@/f/x - 0 0 755 0", -1, EINVAL,
         "E IsPathExist: access @/f/x failed, errno=20\nE PrepareDir: Unexpected recurseOpt:0, not prepare "
         "@/f/x\nISEXIST,errno:20\nINVALID_RECURSEOPT_PREPAREDIR,recurseOpt:0"},
        {"mkdir, mode ignored", "", MkDir, "@/d - - - 0755 1", 0, 0, "I MkDir: DoMkDir @/d suc", "d/ 700"},
        {"mkdir, recursive", "", MkDir, "@/a/b - - - - 2", 0, 0, "I MkDir: DoMkDirRecurse @/a/b suc",
         "a/ 700,a/b/ 700"},
        {"mkdir, existing", "touch f", MkDir, "@/f", 0, 0, "I MkDir: dir @/f already exists"},
        {"mkdir, dangling link", "ln -s none l", MkDir, "@/l - - - - 1", 0, 0, "I MkDir: DoMkDir @/l suc"},
        {"mkdir, no parent", "", MkDir, "@/a/b - - - - 1", -1, ENOENT,
         "E DoMkDir: mkdir @/a/b 700 failed, errno=%\nMKDIR,perm:700"},
        {"mkdir, option 0", "", MkDir, "@/d", -1, EINVAL,
         "E MkDir: Unexpected recurseOpt:0, not mkdir @/d\nINVALID_RECURSEOPT_MKDIR,recurseOpt:0"},
    });
}

TEST_F(CommandsTest, MovesAndCopies) {
    CheckAll({
        {"move", "mkdir s; touch s/f", MoveAll, "@/s @/t", 0, 0, "I DoMove: MoveByRename @/s to @/t suc", "t/,t/f"},
        {"move across", "mkdir s; echo a >s/f; ln -s f s/l; chown 7:8 s", MoveAll, "@/s ~/t", 0, EXDEV,
         "E DoMove: MoveByRename @/s to ~/t failed, errno=18\nE Move: rename @/s to ~/t failed EXDEV, use copy\nW "
         "MoveByCopy: 1 links or special files of @/s are not copied, and removed with it\nI "
         "Remove: Remove @/s suc\nI MoveByCopy: MoveByCopy @/s to ~/t suc",
         "~t/ 7:8,~t/f 2B 7:8"},
        {"move across, set-id bit", "mkdir s; touch s/f; chown 7:8 s; chmod 4750 s/f", MoveAll, "@/s/f ~/t", 0, EXDEV,
         "E DoMove: MoveByRename @/s/f to ~/t failed, errno=18\nE Move: rename @/s/f to ~/t failed EXDEV, use copy\nI "
         "Remove: Remove @/s/f suc\nI MoveByCopy: MoveByCopy @/s/f to ~/t suc",
         "s/ 7:8,~t 750"},
        {"move across, immutable source", "mkdir s; touch s/f; chattr +i s/f", MoveAll, "@/s ~/t", -1, EPERM,
         "E DoMove: MoveByRename @/s to ~/t failed, errno=18\nE Move: rename @/s to ~/t failed EXDEV, use copy\nE "
         "Remove: Remove @/s failed, errno=%\nREMOVE",
         "s/,s/f,~t/,~t/f"},
        {"move, absent", "", MoveAll, "@/x @/t", -2, 0, "E ProcessMigrateAllCmd: src @/x not exist"},
        {"move onto immutable", "touch s t; chattr +i t", MoveAll, "@/s @/t", -1, EPERM,
         "E DoMove: MoveByRename @/s to @/t failed, errno=%\nMOVE,dst:@/t\ndump MOVE"},
        {"move children", "mkdir -p s/b t; touch s/b/c", MoveSub, "@/s @/t", 0, 0,
         "I DoMove: MoveByRename @/s/b to @/t/b suc", "s/,t/,t/b/,t/b/c"},
        {"move children of a file", "touch f", MoveSub, "@/f @/t", -1, ENOTDIR,
         "E ProcessMigrateSubCmd: failed to open dir @/f, errno=%\nOPEN_MIGRATESUB"},
        {"copy children, absent", "", CopySub, "@/x @/t", -2, ENOENT,
         "E ProcessMigrateSubCmd: failed to open dir @/x, errno=%"},
        {"copy children, one fails", "mkdir -p s/b t; touch s/a s/b/x s/c t/b", CopySub, "@/s @/t", -1, ENOTDIR,
         "E DoCopy: copy @/s/b to @/t/b failed, errno=21\nE Copy: orig copy meet err, try skip err\nE DoCopy: copy "
         "@/s/b/x to @/t/b/x failed, errno=%\nCOPY,src:@/s/b,dst:@/t/b,errno:21\nCOPY,src:@/s/b/x,dst:@/t/b/x",
         "s/,s/a,s/b/,s/b/x,s/c,t/,t/a,t/b,t/c"},
        {"copy", "mkdir -m 700 s; ln -s f s/l", CopyAll, "@/s @/t", 0, 0, "", "s/ 700,s/l -> f,t/ 700"},
        {"copy, pipe", "mkdir s; touch s/f; mkfifo s/p", CopyAll, "@/s @/t", 0, EINVAL,
         "E DoCopy: copy @/s to @/t failed, errno=%\nE Copy: orig copy meet err, try skip err\nCOPY,dst:@/t\ndump COPY",
         "s/,s/f,s/p|,t/,t/f"},
        {"copy onto a file", "echo a >f; touch g", CopyAll, "@/f @/g", 0, 0, "", "f 2B,g 2B"},
        {"copy of a file onto a directory", "touch f; mkdir d", CopyAll, "@/f @/d", 0, 0, "", "d/,d/f,f"},
        {"copy onto itself by a link", "mkdir s; touch s/f; ln -s s l", CopyAll, "@/s @/l", -1, EEXIST,
         "E DoCopy: copy @/s to @/l failed, errno=%\nCOPY,dst:@/l"},
        {"copy into itself", "mkdir s; touch s/f", CopyAll, "@/s @/s/x/d", -1, EINVAL,
         "E DoCopy: copy @/s to @/s/x/d failed, errno=%\nCOPY,dst:@/s/x/d\ndump COPY"},
        {"copy, below a file", "touch f", CopyAll, "@/f/x @/t", -1, ENOTDIR,
         "E IsPathExist: access @/f/x failed, errno=%\nE DoCopy: copy @/f/x to @/t failed, errno=%\nE Copy: orig copy "
         "meet err, try skip err\nE IsDir: lstat @/f/x failed, errno=%\nE TryCopy: open dir @/f/x failed, errno "
         "%\nCOPY,dst:@/t\nOPEN_TRYCOPY"},
        {"file with set-id bit", "echo a >s", CopyComb, "@/s @/t 1 2 04755", 0, 0, "", "t 2B 4755 1:2"},
        {"file into a directory", "touch s; chmod 640 s; mkdir t", CopyComb, "@/s @/t 1 2 750", 0, 0, "",
         "t/ 750 1:2,t/s 640"},
        {"tree", "mkdir -p s/d t; touch s/d/g s/f; ln -s f s/l", CopyComb, "@/s @/t 1 2 750", 0, 0,
         "I DoPrepareDir: DoPrepareDir @/t/d suc: 1, 2, 750\nI Remove: Remove @/s/d suc\nI Remove: Remove @/s suc",
         "t/,t/d/ 750 1:2,t/d/g 750 1:2,t/f 750 1:2"},
        {"absent source is reported before empty texts", "", CopyComb, "@/x", -2, 0,
         "E ProcessCopyCombCmd: src @/x not exist"},
        {"no mode", "touch s", CopyComb, "@/s @/t 1 2", -1, EINVAL,
         "E ProcessCopyCombCmd: owner or dac para not provided\nPARA_EMPTY,user:1,group:2,recurseOpt:0"},
        {"unknown group", "touch s", CopyComb, "@/s @/t 1 yy 0", -1, ENOENT,
         "E DecodeGid: getgrnam_r yy failed, group not found\nE ProcessCopyCombCmd: decode uid gid failed: 1 "
         "yy\nGID_GETGRNAM,src:,group:yy"},
        {"mode 0", "touch s", CopyComb, "@/s @/t 1 2 00", -1, ANY,
         "E ProcessCopyCombCmd: transform mode 00 failed, errno=%\nTRANSFORM_MODE,src:,perm:00"},
        {"file, no destination directory, source removed", "touch s", CopyComb, "@/s @/x/t 1 2 755", -1, ENOENT,
         "E DoCopy: copy @/s to @/x/t failed, errno=%\nCOPY,dst:@/x/t", ""},
        {"file onto itself", "touch s; ln s t", CopyComb, "@/s @/t 1 2 755", -1, EEXIST,
         "E DoCopy: copy @/s to @/t failed, errno=%\nCOPY,dst:@/t"},
        {"tree into itself", "mkdir -p s/d; touch s/f", CopyComb, "@/s @/s/d 1 2 755", -1, EINVAL,
         "E DoCopy: copy @/s to @/s/d failed, errno=%\nCOPY,dst:@/s/d\ndump COPY"},
        {"tree onto a link", "mkdir -p s/d t o; touch s/d/f; ln -s ../o t/d", CopyComb, "@/s @/t 1 2 755", -1, ENOTDIR,
         "E DoCopy: copy @/s/d/f to @/t/d/f failed, errno=%\nI Remove: Remove @/s/d suc\nI Remove: Remove @/s "
         "suc\nCOPY,src:@/s/d/f,dst:@/t/d/f",
         "o/,t/,t/d -> ../o"},
        {"tree, no destination directory, source removed", "mkdir -p s/d", CopyComb, "@/s @/t 1 2 755", -1, ENOENT,
         "E DoMkDir: mkdir @/t/d 700 failed, errno=%\nE DoPrepareDir: DoPrepareDir @/t/d failed: 1, 2, 755\nI Remove: "
         "Remove @/s suc\nMKDIR,src:@/t/d,perm:700",
         ""},
        {"immutable source", "touch s; chattr +i s", CopyComb, "@/s @/t 1 2 755", -1, EPERM,
         "E DoUnlink: unlink @/s failed, errno=%\nUnlink", "s,t 755 1:2"},
        {"below a file", "touch f", CopyComb, "@/f/x @/t 1 2 755", -1, ENOTDIR,
         "E IsPathExist: access @/f/x failed, errno=%\nE IsDir: lstat @/f/x failed, errno=%\nE CopyCombRecurse: open "
         "dir @/f/x failed, errno %\nISEXIST\nOPEN_COPYCOMBRECURSE"},
    });
}

TEST_F(CommandsTest, RemovesAndChangesAttributes) {
    CheckAll({
        {"remove, absent", "", Remove, "@/x", 0, 0, "I Remove: Remove @/x suc"},
        {"remove", "mkdir -p d/s o; ln -s ../../o d/s/l", Remove, "@/d", 0, 0, "I Remove: Remove @/d suc", "o/"},
        {"remove immutable", "mkdir d; touch d/f; chattr +i d/f", Remove, "@/d", -1, EPERM,
         "E Remove: Remove @/d failed, errno=%\nREMOVE"},
        {"keep going", "mkdir -p d/s; touch d/s/f; ln -s s d/l", TryRemove, "@/d", 0, 0, "", ""},
        {"keep going, link", "mkdir d; touch d/f; ln -s d l", TryRemove, "@/l", 0, 0, "", "d/,d/f"},
        {"keep going, absent", "", TryRemove, "@/x", -1, ENOENT,
         "E IsDir: lstat @/x failed, errno=%\nE TryRemove: open dir @/x failed, errno %\nOPEN_TRYREMOVE"},
        {"keep going, immutable", "mkdir d; touch d/a d/b d/c; chattr +i d/b", TryRemove, "@/d", -1, ENOTEMPTY,
         "E DoUnlink: unlink @/d/b failed, errno=1\nE DoRmDir: rmdir @/d failed, "
         "errno=%\nUnlink,src:@/d/b,errno:1\nRMDIR",
         "d/,d/b"},
        {"restorecon, option 0", "touch f", Restorecon, "@/f", -1, EINVAL,
         "E RestoreCon: Unexpected recurseOpt:0, not restorecon @/f"},
        {"restorecon", "! test -e /etc/selinux/config", Restorecon, "@ - - - - 1", -1, EOPNOTSUPP,
         "E RestoreCon: Restorecon @ failed, errno=%\nRESTORECON_NORECURSE"},
        {"restorecon, recursive", "! test -e /etc/selinux/config", Restorecon, "@ - - - - 2", -1, EOPNOTSUPP,
         "E RestoreCon: RestoreconRecurseParallel @ failed, errno=%\nRESTORECONRECURSEPARALLEL"},
        {"from the parent", "! test -e /etc/selinux/config", RestoreconFromParent, "@", -1, EOPNOTSUPP,
         "E RestoreConFromParent: RestoreconFromParentDir @ failed, ret=-95, errno=%\nRESTORECON_FROMPARENT"},
        {"chown link", "ln -s f l", ChOwn, "@/l - 1 2 - 1", 0, 0, "I ChOwn: DoChOwn @/l 1 2 suc", "l -> f 1:2"},
        {"chown, recursive, follows no link", "mkdir -p d/s o; touch d/s/f o/f; ln -s ../o d/l", ChOwn, "@/d - 1 2 - 2",
         0, 0, "I ChOwn: DoChOwnRecurse @/d 1 2 suc", "d/ 1:2,d/l -> ../o 1:2,d/s/ 1:2,d/s/f 1:2,o/,o/f"},
        {"chown, unknown user", "touch f", ChOwn, "@/f - xx 2 - 1", -1, ENOENT,
         "E DecodeUid: getpwnam_r xx failed, user not found\nE ProcessChOwnCmd: transform uid gid xx 2 "
         "failed\nUID_GETPWNAM,src:,user:xx"},
        {"chown, 32 bits of user", "touch f", ChOwn, "@/f - 4294967295 2 - 1", -1, 0,
         "E ProcessChOwnCmd: transform uid gid 4294967295 2 failed"},
        {"chown, one immutable", "mkdir d; touch d/a d/b d/c; chattr +i d/b", ChOwn, "@/d - 1 2 - 2", -1, EPERM,
         "E DoChOwn: lchown @/d/b 1 2 failed, errno=%\nCHOWN,src:@/d/b,user:1,group:2\ndump CHOWN",
         "d/ 1:2,d/a 1:2,d/b,d/c 1:2"},
        {"chown, option 0", "touch f", ChOwn, "@/f - 1 2", -1, EINVAL,
         "E ChOwn: Unexpected recurseOpt:0, not chown @/f\nINVALID_RECURSEOPT_CHOWN,recurseOpt:0"},
        {"chmod, option 0", "touch f", ChMod, "@/f - - - 700", -1, EINVAL,
         "E ChMod: Unexpected recurseOpt:0, not chmod @/f\nINVALID_RECURSEOPT_CHMOD,recurseOpt:0"},
        {"chmod", "mkdir d", ChMod, "@/d - - - 4711 1", 0, 0, "I ChMod: DoChMod @/d 4711 suc", "d/ 4711"},
        {"chmod, recursive", "mkdir -p d/s; touch d/s/f", ChMod, "@/d - - - 700x 2", 0, 0,
         "I ChMod: DoChModRecurse @/d 700 suc", "d/ 700,d/s/ 700,d/s/f 700"},
        {"chmod, one link", "mkdir -p d/s; touch d/a d/s/f; ln -s a d/l", ChMod, "@/d - - - 700 2", -1, EOPNOTSUPP,
         "E DoChMod: lchmod @/d/l 700 failed, errno=%\nCHMOD,src:@/d/l,perm:700",
         "d/ 700,d/a 700,d/l -> a,d/s/ 700,d/s/f 700"},
        {"chmod, mode 0", "touch f", ChMod, "@/f - - - 0 1", -1, ANY,
         "E ProcessChModCmd: transform mode 0 failed, errno=%\nTRANSFORM_MODE,src:,perm:0"},
        {"chmod, 32 bits of mode", "touch f", ChMod, "@/f - - - 77777777777 1", -1, EINVAL, "W ChMod: invalid mode"},
    });
}

/// The daemon runs without the capabilities that override permission bits, as under a strict label policy.
TEST_F(CommandsTest, ReportsDirectoriesThatItCannotOpen) {
    Start({{}, {"setpriv", "--bounding-set", "-dac_override,-dac_read_search"}});
    const int blocks = static_cast<int>(Lstat(tree->Dir("d")).st_blocks);
    CheckAll({
        {"used space", "mkdir -m 0 d", UsedSpace, "@/d", blocks / 2, EACCES,
         "E AddBlksRecurse: open dir @/d failed, errno %\nOPEN_ADDBLKSRECURSE"},
        {"largest", "mkdir -m 0 d", MaxSize, "@/d", -1, EACCES,
         "E RecMaxSizeRecurse: open dir @/d failed, errno %\nOPEN_RECMAXSIZERECURSE"},
        {"chown", "mkdir d; touch d/f; mkdir -m 0 d/s", ChOwn, "@/d - 0 2 - 2", -1, EACCES,
         "E DoChOwnRecurse: open dir @/d/s failed, errno %\nOPEN_CHMOWNERECURSE,src:@/d/s",
         "d/ 0:2,d/f 0:2,d/s/ 0 0:2"},
        {"chown, option 0", "touch f", ChOwn, "@/f - 1 2", -1, EINVAL,
         "E ChOwn: Unexpected recurseOpt:0, not chown @/f\nINVALID_RECURSEOPT_CHOWN,recurseOpt:0"},
        {"chmod, option 0", "touch f", ChMod, "@/f - - - 700", -1, EINVAL,
         "E ChMod: Unexpected recurseOpt:0, not chmod @/f\nINVALID_RECURSEOPT_CHMOD,recurseOpt:0"},
        {"chmod", "mkdir d", ChMod, "@/d - - - 100 2", -1, EACCES,
         "E DoChModRecurse: open dir @/d failed, errno %\nOPEN_CHMODERECURSE", "d/ 100"},
    });
}

TEST_F(CommandsTest, RestoresTheLabelsOfAPolicy) {
    const std::string rules = "/.* u:r:data:s0\n/data/.*/f u:r:file:s0\n";
    if (!StartWithLabels(rules)) {
        GTEST_SKIP() << "needs privilege: a mount namespace for a policy of its own";
    }
    CheckAll({
        {"one path", "touch f", Restorecon, "@/f - - - - 1", 0, 0, "I RestoreCon: Restorecon @/f suc"},
        {"tree", "mkdir d", Restorecon, "@/d - - - - 2", 0, 0, "I RestoreCon: RestoreconRecurseParallel @/d suc"},
        {"by the parent", "touch f", RestoreconFromParent, "@/f", 0, 0,
         "I RestoreConFromParent: RestoreconFromParentDir @/f suc"},
    });
    ASSERT_TRUE(Shell("mkdir d; touch d/f"));
    EXPECT_EQ(Call(RequestOf(Restorecon, Expand("@ - - - - 2"))).result, 0);
    EXPECT_EQ(Call({RestoreconFromParent, tree->Path("f")}).result, 0);
    EXPECT_EQ(Shell("find d f -printf '%Z\n' | xargs"), "u:r:data:s0 u:r:file:s0 u:r:data:s0\n");
    ASSERT_TRUE(Shell("chown 1:1 d; chmod 700 d"));
    ASSERT_TRUE(StartWithLabels(rules, "setpriv --bounding-set -dac_override,-dac_read_search"));
    const Reply unread = Call(RequestOf(Restorecon, Expand("@ - - - - 2")));
    EXPECT_EQ(std::pair(unread.result, unread.errCode), std::pair(-1, EACCES)) << "an unread directory is a failure";
}

// The C library before 2.39 implements fstat() with newfstatat(); the thread sanitizer does not.
#if defined(__SANITIZE_THREAD__) || __GLIBC_PREREQ(2, 39)
constexpr bool FSTAT_IS_NEWFSTATAT = false;
#else
constexpr bool FSTAT_IS_NEWFSTATAT = true;
#endif

/// strace makes a later lookup of the file fail, as if another process had removed it in the meantime.
TEST_F(CommandsTest, ReportsFilesThatDisappearDuringARequest) {
    const std::string file = tree->File("f");
    const std::string lost = ": lstat " + file + " failed, errno=2\n";
    const struct {
        Request request;
        std::string line, type, look;
    } rows[] = {
        {{MaxSize, file}, "E RecMaxSize" + lost, "MAXSIZE_LSTAT", "2"},
        {{MoveAll, file, second->Path("t")}, "E GetUidGid" + lost, "GETUIDGID", FSTAT_IS_NEWFSTATAT ? "3" : "2"},
    };
    for (const auto& row : rows) {
        ClearRecords();
        Start({{}, {"strace", "-fqqo/dev/null", "-P", file, "-einject=newfstatat:error=ENOENT:when=" + row.look}});
        const Reply reply = Call(row.request);
        EXPECT_TRUE(reply.result == -1 && reply.errCode == ENOENT) << row.type;
        EXPECT_NE(LinesOf(daemon->Log()).find(row.line), std::string::npos) << row.type;
        ASSERT_EQ(Records().size(), 1U) << row.type;
        EXPECT_EQ(Records()[0].find("type:" + row.type + ",src:" + file + ","), 0U);
    }
}

TEST_F(CommandsTest, CopiesAreFlushedBeforeTheirSourceIsRemoved) {
    const std::string calls = second->Path("calls");
    const struct {
        Command cmd;
        const char* request;
        int errCode;
        const char* record;
    } rows[] = {{MoveAll, "@/s ~/t", EXDEV, "COPY,dst:~/t"}, {CopyComb, "@/s @/t 1 2 755", 0, "COPY,dst:@/t"}};
    for (const auto& [cmd, request, errCode, record] : rows) {
        for (const bool isFailing : {false, true}) {
            ClearRecords();
            const std::string fault = isFailing ? "error=EIO" : "delay_exit=1";
            Start({{}, {"strace", "-fqo", calls, "-einject=syncfs:" + fault, "-etrace=pwrite64,syncfs,unlinkat"}});
            ASSERT_TRUE(Shell("rm -rf ~/t t; mkdir s; echo a >s/f; echo b >s/g")) << request;
            ASSERT_TRUE(cmd == MoveAll || Shell("mkdir t"));
            const Reply reply = Call(RequestOf(cmd, Expand(request)));
            EXPECT_EQ(std::pair(reply.result, reply.errCode), isFailing ? std::pair(-1, EIO) : std::pair(0, errCode));
            // Without absolute paths, which are the socket's, a sanitizer's and that of the emptied source.
            EXPECT_EQ(Shell("sed -E '/AT_FDCWD, \"\\//d; s/^[0-9]+ +//; s/\\(.*//' ~/calls | uniq | xargs"),
                      std::string("pwrite64 syncfs") + (isFailing ? "\n" : " unlinkat\n"));
            EXPECT_EQ(Shell("find s 2>/dev/null | sort | xargs || :"), isFailing ? "s s/f s/g\n" : "\n");
        }
        EXPECT_TRUE(daemon->WaitForLog("/t failed, errno=5"));
        EXPECT_EQ(Recorded(tree->Path("s"), "5"), Expand(record) + "\n");
        ASSERT_TRUE(Shell("rm -rf s"));
    }
}

/// Flushes cost time, and what is queued costs space: a batch is 4,096 files.
TEST_F(CommandsTest, CombinedCopyFlushesABatchAtATime) {
    const std::string calls = second->Path("calls");
    Start({{}, {"strace", "-fqo", calls, "-etrace=syncfs"}});
    ASSERT_TRUE(Shell("mkdir -p s/d t empty; for i in $(seq 5000); do : >s/d/$i; done"));
    EXPECT_EQ(Call(RequestOf(CopyComb, Expand("@/s @/t 1 2 755"))).result, 0);
    EXPECT_EQ(Shell("ls t/d | wc -l; test ! -e s; grep -c syncfs ~/calls"), "5000\n2\n");
    EXPECT_EQ(Call(RequestOf(CopyComb, Expand("@/empty @/t 1 2 755"))).result, 0);
    EXPECT_EQ(Shell("grep -c syncfs ~/calls"), "2\n") << "nothing was copied";
    ASSERT_TRUE(Shell("mkdir -p s t2; for i in $(seq 300); do mkdir -p s/d$i/e; done"));
    EXPECT_EQ(Call(RequestOf(CopyComb, Expand("@/s @/t2 1 2 755"))).result, 0);
    EXPECT_EQ(Found(Expand("Remove @/s/d\\d+ suc")).size() + Found(Expand("Remove @/s/d\\d+/e suc")).size(), 600U)
        << "a batch in the middle of the walk names each directory by its own path";
    Start({{}, {"strace", "-fqqo/dev/null", "-etrace=syncfs", "-einject=syncfs:error=EIO"}});
    ASSERT_TRUE(Shell("mkdir -p s/d t3; for i in $(seq 9000); do : >s/d/$i; done"));
    const Reply reply = Call(RequestOf(CopyComb, Expand("@/s @/t3 1 2 755")));
    EXPECT_TRUE(reply.result == -1 && reply.errCode == EIO) << "a batch in the middle of the walk was not written";
    EXPECT_EQ(Shell("ls s/d | wc -l"), "9000\n");
}

/// Who goes on writing while his files are moved loses nothing.
TEST_F(CommandsTest, WhatChangesAfterItWasCopiedStays) {
    const struct {
        const char* change;
        const char* left;  ///< of the source, with its content
        int result;
    } rows[] = {{"echo more >>s/d/f", "s/d/f:more", -1},
                {"echo new >s/d/new", "s/d/new:new", -1},
                {"mv out/d s/moved", "s/moved/g:g", -1},
                {":", "", 0}};
    for (const std::string request : {"@/s ~/t", "@/s @/t 1 2 755"}) {
        const Command cmd = request == "@/s ~/t" ? MoveAll : CopyComb;
        for (const auto& [change, left, result] : rows) {
            SCOPED_TRACE(request + change);
            Start({{}, {"strace", "-fqqo/dev/null", "-etrace=syncfs", "-einject=syncfs:delay_enter=500000"}});
            ASSERT_TRUE(
                Shell("rm -rf s t out ~/t; mkdir -p s/d out/d; echo a >s/d/f; ln s/d/f s/d/g; echo g >out/d/g; "
                      "ln -s f s/l"));
            ASSERT_TRUE(cmd == MoveAll || Shell("mkdir t"));
            RawClient client;
            client.Send(RequestOf(cmd, Expand(request)));
            ASSERT_TRUE(Becomes([&] { return Shell("test -s t/d/f -a -s t/d/g || test -s ~/t/d/f -a -s ~/t/d/g"); }));
            std::this_thread::sleep_for(Deadline{100});
            ASSERT_TRUE(Shell(change));
            const Reply reply = client.Receive().value();
            EXPECT_EQ(reply.result, result);
            EXPECT_TRUE(result == 0 || reply.errCode == ESTALE) << reply.errCode;
            const std::string found = *Shell("grep -rs '' s | sed 's/$/ /' | sort | tr -d '\\n' || :");
            EXPECT_TRUE(*left == '\0' ? found.empty() : found.find(left) != found.npos) << found;
            EXPECT_EQ(found.find("more") != found.npos, std::string(change).find("more") != std::string::npos) << found;
        }
    }
}

/// "link/" must not stand for the directory that the link names, nor "file/" for the file.
TEST_F(CommandsTest, SlashAtTheEndDemandsADirectory) {
    const struct {
        Command cmd;
        const char* request;
    } rows[] = {
        {ChOwn, "@/l/ - 1 2 - 1"},
        {ChOwn, "@/l/ - 1 2 - 2"},
        {ChMod, "@/l/ - - - 700 1"},
        {ChMod, "@/l/ - - - 700 2"},
        {Remove, "@/l/"},
        {TryRemove, "@/l//"},
        {MoveAll, "@/l/ ~/t"},
        {MoveSub, "@/l/ @/s"},
        {CopyAll, "@/l/ @/t"},
        {CopySub, "@/l/ @/s"},
        {CopyAll, "@/s @/l/"},
        {MoveAll, "~/s @/l/"},
        {CopyComb, "@/l/ @/s 1 2 7"},
        {CopyComb, "@/s @/l/ 1 2 7"},
        {ChOwn, "@/f/ - 1 2 - 1"},
        {CopyAll, "@/f/ @/t"},
        {CopyComb, "@/f/ @/s/t 1 2 700"},
        {Remove, "@/f/"},
    };
    ASSERT_TRUE(Shell("mkdir -p s o/d ~/s; touch s/f o/d/f ~/s/g f; ln -s o l"));
    const std::string before = Listing();
    for (const auto& [cmd, request] : rows) {
        const Reply reply = Call(RequestOf(cmd, Expand(request)));
        EXPECT_TRUE(reply.result == -1 && reply.errCode == ENOTDIR) << request << reply.errCode;
        EXPECT_EQ(Listing(), before) << request;
    }
    EXPECT_EQ(Call(RequestOf(CopyAll, Expand("@/s/ @/t/"))).result, 0) << "a directory may be named so";
}

TEST_F(CommandsTest, SpaceCountsTheBlocksOfEveryName) {
    ASSERT_TRUE(Shell("mkdir s; echo >s/f; head -c 100000 /dev/zero >a; ln a s/b; truncate -s 9M c; ln -s /etc l"));
    EXPECT_EQ(std::to_string(Call({UsedSpace, tree->Path()}).result) + "\t.\n", Shell("du -lks ."));
    EXPECT_EQ(std::to_string(Call({MaxSize, tree->Path()}).result) + "\ta\n", Shell("du -k a"));
}

TEST_F(CommandsTest, SpaceWalksDoNotRepeatLookups) {
    const std::string calls = second->Path("calls");
    Start({{}, {"strace", "-fqo", calls, "-e", "trace=newfstatat,lstat"}});
    ASSERT_TRUE(Shell("mkdir -p d/ee; touch d/ee/ff"));
    const auto looks = [&] { return *Shell("grep -c '\"ee\"' ~/calls || :; grep -c '\"ff\"' ~/calls; : >~/calls"); };
    EXPECT_GT(Call({UsedSpace, tree->Path("d")}).result, 0);
    EXPECT_EQ(looks(), "2\n1\n");
    EXPECT_EQ(Call({MaxSize, tree->Path("d")}).result, 0);
    EXPECT_EQ(looks(), "0\n1\n");
}

TEST_F(CommandsTest, ChangesAndRemovesDeepTrees) {
    for (const Command remove : {Remove, TryRemove}) {
        ASSERT_TRUE(Shell("mkdir d; perl -e 'chdir \"d\", mkdir \"d\" for 1..3000'"));
        EXPECT_EQ(Call(RequestOf(ChOwn, Expand("@/d - 1 2 - 2"))).result, 0);
        EXPECT_EQ(Call(RequestOf(ChMod, Expand("@/d - - - 700 2"))).result, 0);
        EXPECT_EQ(Shell("find d -printf '%U %G %m\n' | uniq -c | xargs"), "3001 1 2 700\n");
        EXPECT_EQ(Call({remove, tree->Path("d")}).result, 0);
        EXPECT_EQ(Listing(), "");
    }
}

TEST_F(CommandsTest, RecordsRefusedRequestsAndKeepsTheConnection) {
    const std::string path(4096, 'x'), owner(36, 'u');
    const struct {
        Command cmd;
        std::string request;
        const char* log;
        std::string record;
        std::size_t size = sizeof(FileMigrateRcvMsg);
    } rows[] = {
        {IsExist, path, "E IsRecvMsgValid: Invalid String: src", "INVALID_STR,src:"},
        {IsExist, "/ " + path, "E IsRecvMsgValid: Invalid String: dts", "INVALID_STR,dts:"},
        {IsExist, "/ - " + owner, "E IsRecvMsgValid: Invalid String: user", "INVALID_STR,user:"},
        {IsExist, "/ - - " + owner, "E IsRecvMsgValid: Invalid String: group", "INVALID_STR,group:"},
        {IsExist, "/ - - - ../", "E IsRecvMsgValid: Invalid String: perm", "INVALID_STR,perm:"},
        {IsExist, "/a/../b", "E IsRecvMsgValid: Invalid String: src", "INVALID_STR,src:"},
        {IsExist, "/ /a/../", "E IsRecvMsgValid: Invalid String: dts", "INVALID_STR,dts:"},
        {Command{19}, "/", "E IsRecvMsgValid: Invalid cmd: 19", "INVALID_CMD,cmd:19"},
        {Command{-1}, "/", "E IsRecvMsgValid: Invalid cmd: -1", "INVALID_CMD,cmd:-1"},
        {IsExist, "/ - - - -1", "E IsRecvMsgValid: Invalid perm: -1", "INVALID_MODE,perm:-1"},
        {IsExist, "/ - - - - 3", "E IsRecvMsgValid: Invalid recurseOpt: 3", "INVALID_RECURSEOPT,recurseOpt:3"},
        {IsExist, "/ - - - - -1", "E IsRecvMsgValid: Invalid recurseOpt: -1", "INVALID_RECURSEOPT,recurseOpt:-1"},
        {IsExist, "/", "E HandleCmd: recvBufSize error: 8287, expect: 8288", "RECVBUFSIZE,recvbufsize:8287", 8287},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.log);
        ClearRecords();
        Start();
        RawClient client;
        const FileMigrateRcvMsg message = RequestOf(row.cmd, row.request).Wire();
        client.Send({reinterpret_cast<const char*>(&message), row.size});
        ASSERT_TRUE(daemon->WaitForLog("[SubFdRef:")) << "the worker has not finished the request";
        const std::string end = row.size == sizeof(message) ? "\nE HandleCmd: Invalid RecvMsg!\n" : "\n";
        EXPECT_EQ(LinesOf(daemon->Log()), row.log + end);
        ASSERT_EQ(Records().size(), 1U);
        EXPECT_EQ(Records()[0].find("type:" + row.record + ",times:"), 0U) << Records()[0];
        // If the daemon had answered the refused request, this call would receive that answer instead of its own.
        EXPECT_EQ(client.Call({IsDir, "/", "/d", "u", "g", "7", 2}).result, 1);
        EXPECT_FALSE(client.Receive(Deadline{20}));
    }
    const std::regex accepted(R"(E FileMigrateOrvane: \[HandleCmd:\d+\] cmd: 1, src: /, dst: /d, user: u, group: g, )"
                              R"(recurseOpt: 2, perm: 7, fd: (\d+)\n[^]*E FileMigrateOrvane: \[SendResMsg:\d+\] )"
                              R"(result:1, errCode:0, pkgNum:0, fd:\1\n)");
    EXPECT_TRUE(std::regex_search(daemon->Log(), accepted));
    EXPECT_EQ(Call({IsExist, path.substr(1)}).errCode, ENAMETOOLONG) << "the longest path is accepted";
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
