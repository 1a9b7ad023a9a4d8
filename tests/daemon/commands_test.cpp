// Sends every command to a running daemon, for its success and for each of its failures. Checks the reply, the log
// lines, the records and the files afterwards.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using enum Command;

/// What an older kernel leaves in errno: it does not have the call that looks at a file before a combined copy.
const int kLeftOver = std::getenv("FILE_MIGRATE_TEST_WRAPPER") != nullptr ? ENOSYS : 0;
constexpr const char* UNCHANGED = "same";  ///< the files are the same as before the request

struct Row {
    const char* name;
    /// A shell script that makes the files. If one with chattr or a check for SELinux fails, the row is left out.
    const char* before;
    Request request;
    int result;
    int errCode = 0;
    const char* traces = "";        ///< see CommandsTest::Traces; "%" is the reply's error number
    const char* after = UNCHANGED;  ///< see CommandsTest::Listing
    const char* strings = "";
};

/// The log lines that the command or the refusal wrote, without the daemon's own routine lines.
std::string LinesOf(const std::string& log) {
    static const std::regex noise(
        R"([^\n]*(\[(CreateServer|Epoll|HandlerEpollin|AddFdRef|SubFdRef|\w*ThreadTask|HandleCmd:\d+\] cmd:|SendResMsg)"
        R"(|SendStrPkgs|GetStat|GetXattr|XattrVal|GetInodeFlag|ReadKmsgToFile)|/update/migrate/)[^\n]*(\n|$))");
    static const std::regex head(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ([DIWE]) FileMigrateOrvane: \[(\w+):\d+\] )");
    return std::regex_replace(std::regex_replace(log, noise, ""), head, "$1 $2: ");
}

/// A command that runs the daemon and notes what it writes to the log and the record files.
const std::string TRACED = std::string("strace -fqqyo ") + CALLS + " -s20000 --seccomp-bpf -etrace=write ";

DaemonOptions Traced(const std::string& runner = "") {
    return {{}, {"sh", "-c", "exec " + TRACED + runner + " \"$@\"", "sh"}};
}

struct CommandsTest : DaemonTest {
    CommandsTest() { umask(022); }

    void CheckAll(const std::vector<Row>& rows) {
        if (!daemon) {
            Start(Traced());
        }
        std::string unprivileged;
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            NewTrees();
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
        const std::size_t traced = fs::file_size(CALLS);
        const Reply reply = Call(row.request);
        EXPECT_EQ(reply, (Reply{row.result, row.errCode, reply.packages}));
        EXPECT_EQ(reply.Strings(), Expand(row.strings));
        const std::string errCode = std::to_string(reply.errCode);
        const std::string traces = Traces(traced, Expand(row.request.src), errCode);
        const std::string expected = std::regex_replace(Expand(row.traces), std::regex("%"), errCode);
        EXPECT_EQ(traces, expected + (expected.empty() ? "" : "\n"));
        EXPECT_EQ(Listing(), row.after == UNCHANGED ? before : row.after);
    }

    /// Lists both trees as "d/ 700,d/f 1:2,f 4B,l -> target,p|": the type, and the size, mode and owner where they
    /// differ from 0 bytes, 755 or 644, and root.
    [[nodiscard]] std::string Listing() const {
        return *Shell(
            "find @ ~ -mindepth 1 \\( -type l -printf '%p -> %l' -o -type d -printf '%p/ %m' -o -type p -printf '%p|' "
            "-o -printf '%p %sB %m' \\) -printf ' %U:%G\\n' | sed 's,@/,,; s,~/,\\x7e,; s, 0:0$,,; s, 0B,,; s, 644,,; "
            "s,/ 755,/,' | LC_ALL=C sort | paste -sd, | tr -d '\\n'");
    }

    /// The lines that were written to the log, "Level Function: text", and the records, "TYPE,field:value,...", in
    /// their order.
    /// @param begin  where to begin in strace's output
    [[nodiscard]] std::string Written(std::size_t begin = 0) const {
        const std::string unquoted =
            R"sed( | sed -nE 's/^[^"]*"(.*)", [0-9]+.*/\1/; T; s/\\n$//; s/\\(["\\])/\1/g; /./p')sed";
        const std::string texts = *Shell("tail -c +" + std::to_string(begin + 1) + " " + CALLS + unquoted);
        return std::regex_replace(LinesOf(texts), std::regex("type:([^\n]*),times:[^\n]*"), "$1");
    }

    /// What a request left: as Written(), but without the records' empty fields, the request's source and the reply's
    /// error number, then "dump TYPE" for each kernel-log dump.
    [[nodiscard]] std::string Traces(std::size_t begin, const std::string& src, const std::string& errCode) const {
        const std::regex known(",src:" + src + "(?=,)|,errno:" + errCode +
                               "(?=\n)|,(dst|user|group|perm|recurseOpt):(?=[,\n])");
        return std::regex_replace(Written(begin), known, "") +
               *Shell(std::string("ls 2>/dev/null ") + DUMP_DIRECTORY + R"( | sed 's/\W.*//; s/^/dump /')");
    }
};

TEST_F(CommandsTest, QueriesAndCreatesDirectories) {
    CheckAll({
        {"prepare, mode 0", "", Ask(PrepareDir, "@/d", "", "0", "0", "0", 1), -1, 0,
         "TRANSFORM_MODE,src:,perm:0\nE ProcessPrepareDirCmd: transform mode failed: @/d 0, errno=%"},
        {"exists", "touch f", Ask(IsExist, "@/f"), 1},
        {"does not exist", "ln -s none l", Ask(IsExist, "@/l"), 0},
        {"below a file, with an escape byte", "touch f", Ask(IsExist, "@/f/a\x1b"), -1, ENOTDIR,
         "ISEXIST,src:@/f/a\\33\nE IsPathExist: access @/f/a\\x1b failed, errno=%"},
        {"two dots at the end", "mkdir d", Ask(IsDir, "@/d/.."), 1},
        {"two dots alone", "", Ask(IsDir, ".."), 1},
        {"link to a directory", "mkdir d; ln -s d l", Ask(IsDir, "@/l"), 0},
        {"is-dir, absent", "", Ask(IsDir, "@/x"), -1, ENOENT, "ISDIR\nE IsDir: lstat @/x failed, errno=%"},
        {"list, empty", "mkdir d", Ask(ListDir, "@/d"), 0},
        {"list, directory", "mkdir -p d/s", Ask(ListDir, "@/d"), 0, 0, "", UNCHANGED, "s:1"},
        {"list, through a link", "mkdir d; ln -s . d/l; ln -s d k", Ask(ListDir, "@/k"), 0, 0, "", UNCHANGED, "l:0"},
        {"list, absent", "", Ask(ListDir, "@/x"), -1, ENOENT, "E ListDir: failed to open dir @/x, errno=%"},
        {"list, file", "touch f", Ask(ListDir, "@/f"), -1, ENOTDIR,
         "LISTDIR_OPEN\nE ListDir: failed to open dir @/f, errno=%"},
        {"existed path", "mkdir d", Ask(ExistedPath, "@/d/x/y"), 0, 0, "", UNCHANGED, "@/d"},
        {"existed, below a file", "touch f", Ask(ExistedPath, "@/f/x"), -1, ENOTDIR,
         "E IsPathExist: access @/f/x failed, errno=%\nGET_EXISTED_PATH"},
        {"used space, absent", "", Ask(UsedSpace, "@/x"), 0, ENOENT,
         "E AddBlks: lstat @/x failed, errno=%\nADDBLKS_LSTAT"},
        {"largest, no file", "mkdir d", Ask(MaxSize, "@/d"), 0},
        {"largest, absent", "", Ask(MaxSize, "@/x"), -1, ENOENT,
         "ISDIR\nE IsDir: lstat @/x failed, errno=%\nE RecMaxSizeRecurse: open dir @/x failed, errno "
         "%\nOPEN_RECMAXSIZERECURSE"},
        {"prepare, recursive", "mkdir -m 700 d", Ask(PrepareDir, "@/d/a/b", "", "1", "2", "04755", 2), 0, 0,
         "I DoPrepareDir: DoPrepareDir @/d/a suc: 1, 2, 4755\nI DoPrepareDir: DoPrepareDir @/d/a/b suc: 1, 2, 4755",
         "d/ 700,d/a/ 4755 1:2,d/a/b/ 4755 1:2"},
        {"prepare, existing", "mkdir d", Ask(PrepareDir, "@/d", "", "1", "2", "700"), 0, 0,
         "I PrepareDir: dir @/d already exists"},
        {"prepare, all mode bits", "", Ask(PrepareDir, "@/d", "", "0", "0", "77777777777", 1), 0, 0,
         "I DoPrepareDir: DoPrepareDir @/d suc: 0, 0, 37777777777", "d/ 7777"},
        {"prepare, no group", "", Ask(PrepareDir, "@/d", "", "1", "", "755", 1), -1, EINVAL,
         "E ProcessPrepareDirCmd: dir @/d owner or dac para not provided\nPARA_EMPTY,user:1,perm:755,recurseOpt:1"},
        {"prepare, unknown names", "", Ask(PrepareDir, "@/d", "", "xx", "yy", "755", 1), -1, ENOENT,
         "E DecodeUid: getpwnam_r xx failed, user not found\nUID_GETPWNAM,src:,user:xx\nE DecodeGid: getgrnam_r yy "
         "failed, group not found\nGID_GETGRNAM,src:,group:yy\nE ProcessPrepareDirCmd: decode uid gid for @/d failed: "
         "xx yy"},
        {"prepare, dangling link", "ln -s none l", Ask(PrepareDir, "@/l", "", "1", "2", "755", 1), -1, EOPNOTSUPP,
         "E DoChMod: lchmod @/l 755 failed, errno=%\nCHMOD,perm:755\nE DoPrepareDir: DoPrepareDir @/l failed: 1, 2, "
         "755"},
        {"prepare, no parent", "", Ask(PrepareDir, "@/a/b", "", "0", "0", "755", 1), -1, ENOENT,
         "E DoMkDir: mkdir @/a/b 700 failed, errno=%\nMKDIR,perm:700\nE DoPrepareDir: DoPrepareDir @/a/b failed: 0, 0, "
         "755"},
        {"prepare, option 0", "touch f", Ask(PrepareDir, "@/f/x", "", "0", "0", "755", 0), -1, EINVAL,
         "ISEXIST,errno:20\nE IsPathExist: access @/f/x failed, errno=20\nE PrepareDir: Unexpected recurseOpt:0, not "
         "prepare @/f/x\nINVALID_RECURSEOPT_PREPAREDIR,recurseOpt:0"},
        {"mkdir, mode ignored", "", Ask(MkDir, "@/d", "", "", "", "0755", 1), 0, 0, "I MkDir: DoMkDir @/d suc",
         "d/ 700"},
        {"mkdir, recursive", "", Ask(MkDir, "@/a/b", "", "", "", "", 2), 0, 0, "I MkDir: DoMkDirRecurse @/a/b suc",
         "a/ 700,a/b/ 700"},
        {"mkdir, existing", "touch f", Ask(MkDir, "@/f"), 0, 0, "I MkDir: dir @/f already exists"},
        {"mkdir, dangling link", "ln -s none l", Ask(MkDir, "@/l", "", "", "", "", 1), 0, 0,
         "I MkDir: DoMkDir @/l suc"},
        {"mkdir, no parent", "", Ask(MkDir, "@/a/b", "", "", "", "", 1), -1, ENOENT,
         "E DoMkDir: mkdir @/a/b 700 failed, errno=%\nMKDIR,perm:700"},
        {"mkdir, option 0", "", Ask(MkDir, "@/d"), -1, EINVAL,
         "E MkDir: Unexpected recurseOpt:0, not mkdir @/d\nINVALID_RECURSEOPT_MKDIR,recurseOpt:0"},
    });
}

TEST_F(CommandsTest, MovesAndCopies) {
    CheckAll({
        {"mode 0", "touch s", Ask(CopyComb, "@/s", "@/t", "1", "2", "00"), -1, kLeftOver,
         "TRANSFORM_MODE,src:,perm:00\nE ProcessCopyCombCmd: transform mode 00 failed, errno=%"},
        {"move", "mkdir s; touch s/f", Ask(MoveAll, "@/s", "@/t"), 0, 0, "I DoMove: MoveByRename @/s to @/t suc",
         "t/,t/f"},
        {"move across", "mkdir s; echo a >s/f; ln -s f s/l; chown 7:8 s", Ask(MoveAll, "@/s", "~/t"), 0, EXDEV,
         "E DoMove: MoveByRename @/s to ~/t failed, errno=18\nE Move: rename @/s to ~/t failed EXDEV, use copy\nW "
         "MoveByCopy: 1 links or special files of @/s are not copied, and removed with it\nI "
         "Remove: Remove @/s suc\nI MoveByCopy: MoveByCopy @/s to ~/t suc",
         "~t/ 7:8,~t/f 2B 7:8"},
        {"move across, immutable source", "mkdir s; touch s/f; chattr +i s/f", Ask(MoveAll, "@/s", "~/t"), -1, EPERM,
         "E DoMove: MoveByRename @/s to ~/t failed, errno=18\nE Move: rename @/s to ~/t failed EXDEV, use copy\nE "
         "Remove: Remove @/s failed, errno=%\nREMOVE",
         "s/,s/f,~t/,~t/f"},
        {"move, absent", "", Ask(MoveAll, "@/x", "@/t"), -2, 0, "E ProcessMigrateAllCmd: src @/x not exist"},
        {"move onto immutable", "touch s t; chattr +i t", Ask(MoveAll, "@/s", "@/t"), -1, EPERM,
         "E DoMove: MoveByRename @/s to @/t failed, errno=%\nMOVE,dst:@/t\ndump MOVE"},
        {"move children", "mkdir -p s/b t; touch s/b/c", Ask(MoveSub, "@/s", "@/t"), 0, 0,
         "I DoMove: MoveByRename @/s/b to @/t/b suc", "s/,t/,t/b/,t/b/c"},
        {"move children of a file", "touch f", Ask(MoveSub, "@/f", "@/t"), -1, ENOTDIR,
         "OPEN_MIGRATESUB\nE ProcessMigrateSubCmd: failed to open dir @/f, errno=%"},
        {"copy children, absent", "", Ask(CopySub, "@/x", "@/t"), -2, ENOENT,
         "E ProcessMigrateSubCmd: failed to open dir @/x, errno=%"},
        {"copy children, one fails", "mkdir -p s/b t; touch s/a s/b/x s/c t/b", Ask(CopySub, "@/s", "@/t"), -1, ENOTDIR,
         "E DoCopy: copy @/s/b to @/t/b failed, errno=21\nCOPY,src:@/s/b,dst:@/t/b,errno:21\nE Copy: orig copy meet "
         "err, try skip err\nE DoCopy: copy @/s/b/x to @/t/b/x failed, errno=%\nCOPY,src:@/s/b/x,dst:@/t/b/x",
         "s/,s/a,s/b/,s/b/x,s/c,t/,t/a,t/b,t/c"},
        {"copy", "mkdir -m 700 s; ln -s f s/l", Ask(CopyAll, "@/s", "@/t"), 0, 0, "", "s/ 700,s/l -> f,t/ 700"},
        {"copy, pipe", "mkdir s; touch s/f; mkfifo s/p", Ask(CopyAll, "@/s", "@/t"), 0, EINVAL,
         "E DoCopy: copy @/s to @/t failed, errno=%\nCOPY,dst:@/t\nE Copy: orig copy meet err, try skip err\ndump COPY",
         "s/,s/f,s/p|,t/,t/f"},
        {"copy onto a file", "echo a >f; touch g", Ask(CopyAll, "@/f", "@/g"), 0, 0, "", "f 2B,g 2B"},
        {"copy of a file onto a directory", "touch f; mkdir d", Ask(CopyAll, "@/f", "@/d"), 0, 0, "", "d/,d/f,f"},
        {"copy onto itself by a link", "mkdir s; touch s/f; ln -s s l", Ask(CopyAll, "@/s", "@/l"), -1, EEXIST,
         "E DoCopy: copy @/s to @/l failed, errno=%\nCOPY,dst:@/l"},
        {"copy into itself", "mkdir s; touch s/f", Ask(CopyAll, "@/s", "@/s/x/d"), -1, EINVAL,
         "E DoCopy: copy @/s to @/s/x/d failed, errno=%\nCOPY,dst:@/s/x/d\ndump COPY"},
        {"copy, below a file", "touch f", Ask(CopyAll, "@/f/x", "@/t"), -1, ENOTDIR,
         "E IsPathExist: access @/f/x failed, errno=%\nE DoCopy: copy @/f/x to @/t failed, errno=%\nCOPY,dst:@/t\nE "
         "Copy: orig copy meet err, try skip err\nE IsDir: lstat @/f/x failed, errno=%\nE TryCopy: open dir @/f/x "
         "failed, errno %\nOPEN_TRYCOPY"},
        {"file into a directory", "touch s; chmod 640 s; mkdir t", Ask(CopyComb, "@/s", "@/t", "1", "2", "750"), 0, 0,
         "", "t/ 750 1:2,t/s 640"},
        {"tree", "mkdir -p s/d t; touch s/d/g s/f; ln -s f s/l", Ask(CopyComb, "@/s", "@/t", "1", "2", "750"), 0, 0,
         "I DoPrepareDir: DoPrepareDir @/t/d suc: 1, 2, 750\nI Remove: Remove @/s/d suc\nI Remove: Remove @/s suc",
         "t/,t/d/ 750 1:2,t/d/g 750 1:2,t/f 750 1:2"},
        {"absent source is reported before empty texts", "", Ask(CopyComb, "@/x"), -2, 0,
         "E ProcessCopyCombCmd: src @/x not exist"},
        {"no mode", "touch s", Ask(CopyComb, "@/s", "@/t", "1", "2"), -1, EINVAL,
         "E ProcessCopyCombCmd: owner or dac para not provided\nPARA_EMPTY,user:1,group:2,recurseOpt:0"},
        {"unknown group", "touch s", Ask(CopyComb, "@/s", "@/t", "1", "yy", "0"), -1, ENOENT,
         "E DecodeGid: getgrnam_r yy failed, group not found\nGID_GETGRNAM,src:,group:yy\nE ProcessCopyCombCmd: decode "
         "uid gid failed: 1 yy"},
        {"file, no destination directory, source removed", "touch s", Ask(CopyComb, "@/s", "@/x/t", "1", "2", "755"),
         -1, ENOENT, "E DoCopy: copy @/s to @/x/t failed, errno=%\nCOPY,dst:@/x/t", ""},
        {"file onto itself", "touch s; ln s t", Ask(CopyComb, "@/s", "@/t", "1", "2", "755"), -1, EEXIST,
         "E DoCopy: copy @/s to @/t failed, errno=%\nCOPY,dst:@/t"},
        {"tree into itself", "mkdir -p s/d; touch s/f", Ask(CopyComb, "@/s", "@/s/d", "1", "2", "755"), -1, EINVAL,
         "E DoCopy: copy @/s to @/s/d failed, errno=%\nCOPY,dst:@/s/d\ndump COPY"},
        {"tree onto a link", "mkdir -p s/d t o; touch s/d/f; ln -s ../o t/d",
         Ask(CopyComb, "@/s", "@/t", "1", "2", "755"), -1, ENOTDIR,
         "E DoCopy: copy @/s/d/f to @/t/d/f failed, errno=%\nCOPY,src:@/s/d/f,dst:@/t/d/f\nI Remove: Remove @/s/d "
         "suc\nI Remove: Remove @/s suc",
         "o/,t/,t/d -> ../o"},
        {"tree, no destination directory, source removed", "mkdir -p s/d", Ask(CopyComb, "@/s", "@/t", "1", "2", "755"),
         -1, ENOENT,
         "E DoMkDir: mkdir @/t/d 700 failed, errno=%\nMKDIR,src:@/t/d,perm:700\nE DoPrepareDir: DoPrepareDir @/t/d "
         "failed: 1, 2, 755\nI Remove: Remove @/s suc",
         ""},
        {"immutable source", "touch s; chattr +i s", Ask(CopyComb, "@/s", "@/t", "1", "2", "755"), -1, EPERM,
         "Unlink\nE DoUnlink: unlink @/s failed, errno=%", "s,t 755 1:2"},
        {"below a file", "touch f", Ask(CopyComb, "@/f/x", "@/t", "1", "2", "755"), -1, ENOTDIR,
         "ISEXIST\nE IsPathExist: access @/f/x failed, errno=%\nE IsDir: lstat @/f/x failed, errno=%\nE "
         "CopyCombRecurse: open dir @/f/x failed, errno %\nOPEN_COPYCOMBRECURSE"},
    });
}

TEST_F(CommandsTest, RemovesAndChangesAttributes) {
    CheckAll({
        {"chmod, mode 0", "touch f", Ask(ChMod, "@/f", "", "", "", "0", 1), -1, 0,
         "E ProcessChModCmd: transform mode 0 failed, errno=%\nTRANSFORM_MODE,src:,perm:0"},
        {"remove, absent", "", Ask(Remove, "@/x"), 0, 0, "I Remove: Remove @/x suc"},
        {"remove", "mkdir -p d/s o; ln -s ../../o d/s/l", Ask(Remove, "@/d"), 0, 0, "I Remove: Remove @/d suc", "o/"},
        {"remove immutable", "mkdir d; touch d/f; chattr +i d/f", Ask(Remove, "@/d"), -1, EPERM,
         "E Remove: Remove @/d failed, errno=%\nREMOVE"},
        {"keep going", "mkdir -p d/s; touch d/s/f; ln -s s d/l", Ask(TryRemove, "@/d"), 0, 0, "", ""},
        {"keep going, link", "mkdir d; touch d/f; ln -s d l", Ask(TryRemove, "@/l"), 0, 0, "", "d/,d/f"},
        {"keep going, absent", "", Ask(TryRemove, "@/x"), -1, ENOENT,
         "E IsDir: lstat @/x failed, errno=%\nOPEN_TRYREMOVE\nE TryRemove: open dir @/x failed, errno %"},
        {"keep going, immutable", "mkdir d; touch d/a d/b d/c; chattr +i d/b", Ask(TryRemove, "@/d"), -1, ENOTEMPTY,
         "Unlink,src:@/d/b,errno:1\nE DoUnlink: unlink @/d/b failed, errno=1\nRMDIR\nE DoRmDir: rmdir @/d failed, "
         "errno=%",
         "d/,d/b"},
        {"restorecon, option 0", "touch f", Ask(Restorecon, "@/f"), -1, EINVAL,
         "E RestoreCon: Unexpected recurseOpt:0, not restorecon @/f"},
        {"restorecon", "! test -e /etc/selinux/config", Ask(Restorecon, "@", "", "", "", "", 1), -1, EOPNOTSUPP,
         "E RestoreCon: Restorecon @ failed, errno=%\nRESTORECON_NORECURSE"},
        {"restorecon, recursive", "! test -e /etc/selinux/config", Ask(Restorecon, "@", "", "", "", "", 2), -1,
         EOPNOTSUPP, "E RestoreCon: RestoreconRecurseParallel @ failed, errno=%\nRESTORECONRECURSEPARALLEL"},
        {"from the parent", "! test -e /etc/selinux/config", Ask(RestoreconFromParent, "@"), -1, EOPNOTSUPP,
         "E RestoreConFromParent: RestoreconFromParentDir @ failed, ret=-95, errno=%\nRESTORECON_FROMPARENT"},
        {"chown link", "ln -s f l", Ask(ChOwn, "@/l", "", "1", "2", "", 1), 0, 0, "I ChOwn: DoChOwn @/l 1 2 suc",
         "l -> f 1:2"},
        {"chown, recursive, follows no link", "mkdir -p d/s o; touch d/s/f o/f; ln -s ../o d/l",
         Ask(ChOwn, "@/d", "", "1", "2", "", 2), 0, 0, "I ChOwn: DoChOwnRecurse @/d 1 2 suc",
         "d/ 1:2,d/l -> ../o 1:2,d/s/ 1:2,d/s/f 1:2,o/,o/f"},
        {"chown, unknown user", "touch f", Ask(ChOwn, "@/f", "", "xx", "2", "", 1), -1, ENOENT,
         "E DecodeUid: getpwnam_r xx failed, user not found\nUID_GETPWNAM,src:,user:xx\nE ProcessChOwnCmd: transform "
         "uid gid xx 2 failed"},
        {"chown, 32 bits of user", "touch f", Ask(ChOwn, "@/f", "", "4294967295", "2", "", 1), -1, 0,
         "E ProcessChOwnCmd: transform uid gid 4294967295 2 failed"},
        {"chown, one immutable", "mkdir d; touch d/a d/b d/c; chattr +i d/b", Ask(ChOwn, "@/d", "", "1", "2", "", 2),
         -1, EPERM, "E DoChOwn: lchown @/d/b 1 2 failed, errno=%\nCHOWN,src:@/d/b,user:1,group:2\ndump CHOWN",
         "d/ 1:2,d/a 1:2,d/b,d/c 1:2"},
        {"chown, option 0", "touch f", Ask(ChOwn, "@/f", "", "1", "2"), -1, EINVAL,
         "E ChOwn: Unexpected recurseOpt:0, not chown @/f\nINVALID_RECURSEOPT_CHOWN,recurseOpt:0"},
        {"chmod, option 0", "touch f", Ask(ChMod, "@/f", "", "", "", "700"), -1, EINVAL,
         "E ChMod: Unexpected recurseOpt:0, not chmod @/f\nINVALID_RECURSEOPT_CHMOD,recurseOpt:0"},
        {"chmod", "mkdir d", Ask(ChMod, "@/d", "", "", "", "4711", 1), 0, 0, "I ChMod: DoChMod @/d 4711 suc",
         "d/ 4711"},
        {"chmod, recursive", "mkdir -p d/s; touch d/s/f", Ask(ChMod, "@/d", "", "", "", "700x", 2), 0, 0,
         "I ChMod: DoChModRecurse @/d 700 suc", "d/ 700,d/s/ 700,d/s/f 700"},
        {"chmod, one link", "mkdir -p d/s; touch d/a d/s/f; ln -s a d/l", Ask(ChMod, "@/d", "", "", "", "700", 2), -1,
         EOPNOTSUPP, "E DoChMod: lchmod @/d/l 700 failed, errno=%\nCHMOD,src:@/d/l,perm:700",
         "d/ 700,d/a 700,d/l -> a,d/s/ 700,d/s/f 700"},
        {"chmod, 32 bits of mode", "touch f", Ask(ChMod, "@/f", "", "", "", "77777777777", 1), -1, EINVAL,
         "W ChMod: invalid mode"},
    });
}

/// The daemon runs without the capabilities that override permission bits, as under a strict label policy.
TEST_F(CommandsTest, ReportsDirectoriesThatItCannotOpen) {
    Start(Traced(SETPRIV));
    const int blocks = static_cast<int>(Lstat(tree->Dir("d")).st_blocks);
    CheckAll({
        {"used space", "mkdir -m 0 d", Ask(UsedSpace, "@/d"), blocks / 2, EACCES,
         "E AddBlksRecurse: open dir @/d failed, errno %\nOPEN_ADDBLKSRECURSE"},
        {"owner of a directory that nobody may enter", "mkdir s ~/t; chown 7:8 s; chmod 400 ~/t",
         Ask(MoveAll, "@/s", "~/t"), 0, EXDEV,
         "E DoMove: MoveByRename @/s to ~/t failed, errno=18\nE Move: rename @/s to ~/t failed EXDEV, use copy\nI "
         "Remove: Remove @/s suc\nI MoveByCopy: MoveByCopy @/s to ~/t suc",
         "~t/ 400 7:8"},
        {"flush of a directory that nobody may read", "mkdir s t; echo a >s/f; chmod 300 t",
         Ask(CopyComb, "@/s", "@/t", "0", "0", "755"), -1, EACCES,
         "E MoveByCopy: flush @/t failed, errno=%\nCOPY,dst:@/t", "s/,s/f 2B,t/ 300,t/f 2B 755"},
        {"largest", "mkdir -m 0 d", Ask(MaxSize, "@/d"), -1, EACCES,
         "E RecMaxSizeRecurse: open dir @/d failed, errno %\nOPEN_RECMAXSIZERECURSE"},
        {"chown", "mkdir d; touch d/f; mkdir -m 0 d/s", Ask(ChOwn, "@/d", "", "0", "2", "", 2), -1, EACCES,
         "OPEN_CHMOWNERECURSE,src:@/d/s\nE DoChOwnRecurse: open dir @/d/s failed, errno %",
         "d/ 0:2,d/f 0:2,d/s/ 0 0:2"},
        {"chmod", "mkdir d", Ask(ChMod, "@/d", "", "", "", "100", 2), -1, EACCES,
         "OPEN_CHMODERECURSE\nE DoChModRecurse: open dir @/d failed, errno %", "d/ 100"},
    });
}

TEST_F(CommandsTest, RestoresTheLabelsOfAPolicy) {
    const std::string rules = "/.* u:r:data:s0\n/data/.*/f u:r:file:s0\n";
    if (!StartWithLabels(rules, TRACED)) {
        GTEST_SKIP() << "needs privilege: a mount namespace for a policy of its own";
    }
    CheckAll({
        {"one path", "touch f", Ask(Restorecon, "@/f", "", "", "", "", 1), 0, 0, "I RestoreCon: Restorecon @/f suc"},
        {"tree", "mkdir d", Ask(Restorecon, "@/d", "", "", "", "", 2), 0, 0,
         "I RestoreCon: RestoreconRecurseParallel @/d suc"},
        {"by the parent", "touch f", Ask(RestoreconFromParent, "@/f"), 0, 0,
         "I RestoreConFromParent: RestoreconFromParentDir @/f suc"},
    });
    ASSERT_TRUE(Shell("mkdir d; touch d/f"));
    EXPECT_EQ(Call({Restorecon, "@", "", "", "", "", 2}).result, 0);
    EXPECT_EQ(Call({RestoreconFromParent, tree->Path("f")}).result, 0);
    EXPECT_EQ(Shell("find d f -printf '%Z\n' | xargs"), "u:r:data:s0 u:r:file:s0 u:r:data:s0\n");
    ASSERT_TRUE(Shell("chown 1:1 d; chmod 700 d"));
    ASSERT_TRUE(StartWithLabels(rules, SETPRIV));
    EXPECT_EQ(Call({Restorecon, "@", "", "", "", "", 2}), (Reply{-1, EACCES})) << "an unread directory is a failure";
    ASSERT_TRUE(StartWithLabels(rules, "strace -fqqo /dev/null -einject=setxattr,lsetxattr:error=EOPNOTSUPP"));
    ASSERT_TRUE(Shell("touch new"));
    EXPECT_EQ(Call({Restorecon, "@/new", "", "", "", "", 1}), (Reply{-1, EOPNOTSUPP}));
    ASSERT_TRUE(StartWithLabels("only-one-field\n"));
    (void)Call({Restorecon, "@/new", "", "", "", "", 1});
    EXPECT_TRUE(Found("E .libselinux. [^\n]* line 1 ").size() > 0 && Found("libselinux.*x0a").empty());
}

/// strace makes one of the lookups of the file fail, as if another process had removed it in the meantime. The C
/// library decides which one it is.
TEST_F(CommandsTest, ReportsFilesThatDisappearDuringARequest) {
    const std::string file = tree->Path("f"), lost = ": lstat " + file + " failed, errno=2\n";
    const std::tuple<Request, std::string, std::string> rows[] = {
        {{MaxSize, file}, "E RecMaxSize" + lost, "MAXSIZE_LSTAT"},
        {{MoveAll, file, second->Path("t")}, "E GetUidGid" + lost, "GETUIDGID"},
    };
    for (const auto& [request, line, type] : rows) {
        bool isReported = false;
        for (int look = 1; look <= 3 && !isReported; ++look) {
            ClearRecords();
            tree->File("f");
            StartWithFault({"-P", file, "-einject=newfstatat:error=ENOENT:when=" + std::to_string(look)});
            const Reply reply = Call(request);
            isReported = reply.result == -1 && reply.errCode == ENOENT && Records().size() == 1 &&
                         Records()[0].starts_with("type:" + type + ",src:" + file + ",") &&
                         LinesOf(daemon->Log()).find(line) != std::string::npos;
        }
        EXPECT_TRUE(isReported) << type;
    }
}

/// Flushes cost time, and what is queued costs space: a batch is 4,096 files.
TEST_F(CommandsTest, CombinedCopyFlushesABatchAtATime) {
    const std::string calls = second->Path("calls");
    Start({{}, {"strace", "-fqo", calls, "--seccomp-bpf", "-etrace=syncfs"}});
    ASSERT_TRUE(Shell("mkdir -p s/d t empty; seq -f s/d/%g 4200 | xargs touch"));
    EXPECT_EQ(Call({CopyComb, "@/s", "@/t", "1", "2", "755"}).result, 0);
    EXPECT_EQ(Shell("ls t/d | wc -l; test ! -e s; grep -c syncfs ~/calls"), "4200\n2\n");
    EXPECT_EQ(Call({CopyComb, "@/empty", "@/t", "1", "2", "755"}).result, 0);
    EXPECT_EQ(Shell("grep -c syncfs ~/calls"), "2\n") << "nothing was copied";
    ASSERT_TRUE(Shell("mkdir -p s t2; seq -f s/d%g/e 300 | xargs mkdir -p"));
    EXPECT_EQ(Call({CopyComb, "@/s", "@/t2", "1", "2", "755"}).result, 0);
    EXPECT_EQ(Found(Expand("Remove @/s/d\\d+ suc")).size() + Found(Expand("Remove @/s/d\\d+/e suc")).size(), 600U)
        << "a batch in the middle of the walk names each directory by its own path";
    StartWithFault({"--seccomp-bpf", "-etrace=syncfs", "-einject=syncfs:error=EIO"});
    ASSERT_TRUE(Shell("mkdir -p s/d t3; seq -f s/d/%g 4200 | xargs touch"));
    EXPECT_EQ(Call({CopyComb, "@/s", "@/t3", "1", "2", "755"}), (Reply{-1, EIO}))
        << "a batch in the middle of the walk was not written";
    EXPECT_EQ(Shell("ls s/d | wc -l"), "4200\n");
}

/// Who goes on writing while his files are moved loses nothing.
TEST_F(CommandsTest, WhatChangesAfterItWasCopiedStays) {
    // What the user does, and what is left of the source, with its content.
    const std::pair<std::string, std::string> rows[] = {{"echo more >>s/d/f", "s/d/f:more"},
                                                        {"echo new >s/d/new", "s/d/new:new"},
                                                        {"mv out/d s/moved", "s/moved/g:g"},
                                                        {":", ""}};
    for (const Request& request : {Request{MoveAll, "@/s", "~/t"}, {CopyComb, "@/s", "@/t", "1", "2", "755"}}) {
        for (const auto& [change, left] : rows) {
            SCOPED_TRACE(request.dst + change);
            NewTrees();
            StartStoppingAfter("syncfs");
            ASSERT_TRUE(Shell("mkdir -p t s/d out/d; echo a >s/d/f; ln s/d/f s/d/g; echo g >out/d/g; ln -s f s/l"));
            const Reply reply = CallInterrupted(request, [&, change = change] {
                // The kernel's clock for time stamps advances every 10 ms at most.
                std::this_thread::sleep_for(Deadline{20});
                EXPECT_TRUE(Shell(change));
            });
            EXPECT_EQ(reply.result, left.empty() ? 0 : -1);
            EXPECT_TRUE(left.empty() || reply.errCode == ESTALE) << reply.errCode;
            const std::string found = *Shell("grep -rs '' s || :");
            EXPECT_TRUE(left.empty() ? found.empty() : found.find(left) != found.npos) << found;
            EXPECT_EQ(found.find("more") != found.npos, change.find("more") != change.npos) << found;
        }
    }
}

/// "link/" must not stand for the directory that the link names, nor "file/" for the file.
TEST_F(CommandsTest, SlashAtTheEndDemandsADirectory) {
    ASSERT_TRUE(Shell("mkdir -p s o/d ~/s; touch s/f o/d/f ~/s/g f; ln -s o l"));
    const std::string before = Listing();
    const auto expectRefusal = [&](Command cmd, const std::string& src, const std::string& dst) {
        for (const int recurseOpt : {1, 2}) {
            EXPECT_EQ(Call({cmd, src, dst, "1", "2", "700", recurseOpt}), (Reply{-1, ENOTDIR})) << int(cmd) << src;
            EXPECT_EQ(Listing(), before) << int(cmd) << src << dst;
        }
    };
    for (const Command cmd : {ChOwn, ChMod, Remove, TryRemove, MoveAll, MoveSub, CopyAll, CopySub, CopyComb}) {
        for (const std::string src : {"@/l/", "@/l//", "@/f/"}) {
            expectRefusal(cmd, src, "~/s");
        }
    }
    for (const Command cmd : {MoveAll, CopyAll, CopyComb}) {
        expectRefusal(cmd, "~/s", "@/l/");
    }
    EXPECT_EQ(Call({CopyAll, "@/s/", "@/t/"}).result, 0) << "a directory may be named so";
}

TEST_F(CommandsTest, SpaceCountsTheBlocksOfEveryName) {
    ASSERT_TRUE(Shell("mkdir s; echo >s/f; head -c 100000 /dev/zero >a; ln a s/b; truncate -s 9M c; ln -s /etc l"));
    Start(WITHOUT_OVERRIDES);
    EXPECT_EQ(std::to_string(Call({MaxSize, "@"}).result) + "\ta\n", Shell("du -k a"));
    ASSERT_TRUE(Shell("mkdir -m 0 1 2 3 4"));
    const Reply reply = Call({UsedSpace, "@"});
    EXPECT_EQ(std::to_string(reply.result) + "\t.\n", Shell("du -lks .")) << "a failure does not end the count";
    EXPECT_EQ(reply.errCode, EACCES);
}

TEST_F(CommandsTest, RecordsRefusedRequestsAndKeepsTheConnection) {
    const std::string path(4096, 'x'), owner(36, 'u');
    const std::tuple<Request, std::string, std::string> rows[] = {
        {{IsExist, path}, "E IsRecvMsgValid: Invalid String: src", "INVALID_STR,src:"},
        {{IsExist, "/", path}, "E IsRecvMsgValid: Invalid String: dts", "INVALID_STR,dts:"},
        {{IsExist, "/", "", owner}, "E IsRecvMsgValid: Invalid String: user", "INVALID_STR,user:"},
        {{IsExist, "/", "", "", owner}, "E IsRecvMsgValid: Invalid String: group", "INVALID_STR,group:"},
        {{IsExist, "/", "", "", "", "../"}, "E IsRecvMsgValid: Invalid String: perm", "INVALID_STR,perm:"},
        {{IsExist, "/a/../b"}, "E IsRecvMsgValid: Invalid String: src", "INVALID_STR,src:"},
        {{IsExist, "/", "/a/../"}, "E IsRecvMsgValid: Invalid String: dts", "INVALID_STR,dts:"},
        {{Command{19}, "/"}, "E IsRecvMsgValid: Invalid cmd: 19", "INVALID_CMD,cmd:19"},
        {{Command{-1}, "/"}, "E IsRecvMsgValid: Invalid cmd: -1", "INVALID_CMD,cmd:-1"},
        {{IsExist, "/", "", "", "", "-1"}, "E IsRecvMsgValid: Invalid perm: -1", "INVALID_MODE,perm:-1"},
        {Ask(IsExist, "/", "", "", "", "", 3), "E IsRecvMsgValid: Invalid recurseOpt: 3",
         "INVALID_RECURSEOPT,recurseOpt:3"},
        {Ask(IsExist, "/", "", "", "", "", -1), "E IsRecvMsgValid: Invalid recurseOpt: -1",
         "INVALID_RECURSEOPT,recurseOpt:-1"},
        {{IsExist, "/"}, "E HandleCmd: recvBufSize error: 8287, expect: 8288", "RECVBUFSIZE,recvbufsize:8287"},
    };
    Start(Traced());
    RawClient client;
    std::size_t finished = 0, begin = 0;
    for (const auto& [request, log, record] : rows) {
        SCOPED_TRACE(log);
        const std::size_t traced = fs::file_size(CALLS);
        const FileMigrateRcvMsg message = request.Wire();
        const bool isWhole = !record.starts_with("RECVBUFSIZE");
        client.Send({reinterpret_cast<const char*>(&message), sizeof(message) - (isWhole ? 0 : 1)});
        ASSERT_TRUE(Await("SubFdRef.*refcnt:1\n", ++finished));
        EXPECT_EQ(Written(traced), log + "\n" + record + (isWhole ? "\nE HandleCmd: Invalid RecvMsg!\n" : "\n"));
        // If the daemon had answered the refused request, this call would receive that answer instead of its own.
        begin = daemon->Log().size();
        EXPECT_EQ(client.Call({IsDir, "/", "/d", "u", "g", "7", 2}).result, 1);
        ASSERT_TRUE(Await("SubFdRef.*refcnt:1\n", ++finished));
    }
    EXPECT_FALSE(client.Receive(Deadline{20}));
    const std::regex accepted(R"(E FileMigrateOrvane: \[HandleCmd:\d+\] cmd: 1, src: /, dst: /d, user: u, group: g, )"
                              R"(recurseOpt: 2, perm: 7, fd: (\d+)\n[^]*E FileMigrateOrvane: \[SendResMsg:\d+\] )"
                              R"(result:1, errCode:0, pkgNum:0, fd:\1\n)");
    EXPECT_TRUE(std::regex_search(daemon->Log(begin), accepted));
    EXPECT_EQ(Call({IsExist, path.substr(1)}).errCode, ENAMETOOLONG) << "the longest path is accepted";
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
