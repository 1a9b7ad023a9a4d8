// Output of orvanectl records and dumps for people and scripts.
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "daemon_test.h"
#include "run_tool.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

/// Drops the capabilities but stays root, because another user may not be able to reach the build folder.
const std::string WITHOUT_PRIVILEGE = "setpriv --bounding-set=-all --inh-caps=-all";

using nlohmann::json;
using RecordsCommand = DaemonTest;

std::string Line(const std::string& type, const std::string& src, int errNo, const std::string& time) {
    return "type:" + type + ",src:" + src + ",dst:,user:,group:,perm:,recurseOpt:,errno:" + std::to_string(errNo) +
           ",times:20261121" + time + ";";
}

void Append(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::app | std::ios::binary) << text;
}

/// The numbers of the objects "/data/.../n7" in a text, in order.
std::string Numbers(const std::string& text) {
    static const std::regex name("/n([0-9]+)");
    std::string numbers;
    for (std::sregex_iterator found(text.begin(), text.end(), name), end; found != end; ++found) {
        numbers += found->str(1) + " ";
    }
    return numbers;
}

TEST_F(RecordsCommand, Filters) {
    const std::string file = tree->Path("r.txt");
    Append(file, Line("ISDIR", "/data/app/n1", 2, "101530") + Line("GETUIDGID", "/data/app2/n2", 13, "101531"));
    Append(file, Line("ISDIR", "/data/app/x/n3", 13, "235959"));
    Append(file, "type:MOVE,src:/n4,dst:/data/app,user:,group:,perm:,recurseOpt:,errno:18,times:20261122000000;");
    const auto shown = [&](const std::string& words) { return Numbers(RunTool("records " + file + " " + words).out); };
    EXPECT_EQ(shown("--since '2026-11-21 10:15:31' --until 2026-11-21"), "2 3 ");
    EXPECT_EQ(shown("--since 20261121101531 --until 2026-11-21T10:15"), "2 ");
    EXPECT_EQ(shown("--type isdir --errno eacces"), "3 ");
    EXPECT_EQ(shown("--path /data/app"), "1 3 4 ");
    EXPECT_EQ(shown("--path /data/app/x/ --json"), "3 3 ");  // also in "to_check"
    EXPECT_EQ(shown("- <" + file), "1 1 2 2 3 3 4 4 ");
    EXPECT_EQ(Numbers(RunTool("records --path app/. " + file, "cd /data;").out), "1 3 4 ");
    EXPECT_EQ(RunTool("records --type COPY --summary " + file).err,
              "orvanectl: records: 4 records, none of them matches\n");
    Append(tree->Path("old.txt"),
           std::regex_replace(Line("ISDIR", "/data/n9", 2, "101530"), std::regex("20261121"), "19990101"));
    for (const std::string words : {"yesterday", "-1h", "'10 min ago'", "'2 weeks ago'"}) {
        EXPECT_EQ(Numbers(RunTool("records " + tree->Path("old.txt") + " --until " + words).out), "9 ") << words;
        EXPECT_EQ(Numbers(RunTool("records " + tree->Path("old.txt") + " --since " + words).out), "") << words;
    }
    for (const std::string words : {"--since 2026-02-30", "--until never", "--type NOPE", "-n 0", "--by path",
                                    "--errno EWHAT", "-f -", "-f --summary", "--since 2026-11-22 --until 2026-11-21"}) {
        EXPECT_EQ(RunTool("records " + words).status, 2) << words;
    }
}

TEST_F(RecordsCommand, ReadsTheFilesOfManyMachines) {
    std::string words = "records";
    for (int i = 0; i < 40; ++i) {
        const std::string directory = tree->Path("host" + std::to_string(i));
        Append(directory + "/file_migrate_ab.txt",
               Line("ISDIR", "/data/n" + std::to_string(i), 2, "1015" + std::to_string(59 - i)));
        Append(directory + "/file_migrate_bi.txt",
               Line("RMDIR", "/data/n" + std::to_string(i), 39, "0915" + std::to_string(10 + i)));
        words += " --directory " + directory + (i % 2 == 0 ? "/" : "");
    }
    const std::string shown = Numbers(RunTool(words, "ulimit -n 20;").out);
    EXPECT_EQ(shown.substr(0, 6), "0 1 2 ") << "the order of the times, not of the directories";
    EXPECT_EQ(shown.substr(shown.size() - 6), "2 1 0 ");
    EXPECT_EQ(RunTool(words + " -n 2").out,
              "host1   2026-11-21 10:15:58  ENOENT     ask whether it is a directory  /data/n1\n"
              "host0   2026-11-21 10:15:59  ENOENT     ask whether it is a directory  /data/n0\n");
    EXPECT_EQ(Numbers(RunTool(words + " -r -n 3").out), "0 1 2 ");
    EXPECT_EQ(json::parse(RunTool(words + " -n 1 --json").out)["host"], "host0");
    const std::string cause = "{\"cause\":\"source-missing\",\"count\":40,";
    EXPECT_NE(RunTool(words + " --by cause --json").out.find(cause), std::string::npos);
    const std::string day = "  count  first                last\n     80  2026-11-21 09:15:10  2026-11-21 10:15:59  ";
    EXPECT_EQ(RunTool(words + " --by day").out,
              day + "all records\n\n     80  2026-11-21 09:15:10  2026-11-21 10:15:59  2026-11-21\n");
    Append(tree->Path("host7/name"), "first-device\n");
    EXPECT_EQ(RunTool("records --host-from name -n 1 --directory " + tree->Path("host7")).out.substr(0, 14),
              "first-device  ");
    Append(tree->Path("host7/file_migrate_fail_kmsg/MOVE@20261121101530"), "denied\n");
    EXPECT_EQ(RunTool("dumps --directory " + tree->Path("host7")).out,
              "MOVE@20261121101530                   7 B        1 line     no record\n");
}

TEST_F(RecordsCommand, ComparesWithEarlierRecords) {
    const std::string old = tree->Path("old"), now = tree->Path("now"), file = tree->Path("first.json");
    for (int i = 0; i < 3; ++i) {
        Append(old + "/file_migrate_ab.txt", Line("ISDIR", "/data/n", 2, "091530") + Line("MOVE", "/a", 18, "111530"));
        Append(now + "/file_migrate_ab.txt", Line("ISDIR", "/data/n", 2, "101530"));
    }
    Append(old + "/file_migrate_ab.txt", Line("COPY", "/a", 28, "101530"));
    Append(now + "/file_migrate_ab.txt",
           Line("COPY", "/a", 28, "101530") + Line("COPY", "/a", 28, "101530") + Line("RMDIR", "/a\xff", 39, "101530"));
    const std::string by = " --by errno --directory ";
    const std::string table =
        " before      now    change  errno\n"
        "      7        6        -1  all records\n\n"
        "      0        1       new  ENOTEMPTY\n"
        "      3        0      gone  EXDEV\n"
        "      1        2        +1  ENOSPC\n"
        "      3        3         =  ENOENT\n";
    const std::string filter = " --since '2026-11-21 10:00' --until '2026-11-21 11:00'";  // not of the earlier records
    EXPECT_EQ(RunTool("records --against " + old + by + now + filter).out, table);
    Append(file, RunTool("records --json" + by + old).out);
    EXPECT_EQ(RunTool("records --against " + file + by + now).out, table);
    EXPECT_EQ(RunTool("records --json --errno ENOTEMPTY --against " + file + by + now).out,
              R"({"by":"errno","before":7,"now":1,"groups":[{"errno":"ENOTEMPTY","before":0,"now":1,"change":"new"},)"
              R"({"errno":"ENOENT","before":3,"now":0,"change":"gone"},)"
              R"({"errno":"EXDEV","before":3,"now":0,"change":"gone"},)"
              R"({"errno":"ENOSPC","before":1,"now":0,"change":"gone"}]})"
              "\n");
    Append(tree->Path("none/name"), "");
    const std::tuple<std::string, int, std::string> refused[] = {
        {file, 1, file + ": not a summary by cause; print one with \"orvanectl records --by cause --json\"\n"},
        {tree->Path("none"), 1, tree->Path("none") + ": there are no record files in this directory\n"},
        {tree->Path("missing"), 2, "does not exist: " + tree->Path("missing")},
        {file + " --follow", 2, "cannot be combined with --summary, --by or --against\n"},
    };
    for (const auto& [words, status, message] : refused) {
        const Finished run = RunTool("records --against " + words);
        EXPECT_EQ(run.status, status) << words;
        EXPECT_NE(run.err.find(message), run.err.npos) << words << run.err;
    }
}

TEST_F(RecordsCommand, PrintsAPageWithEscapedRecords) {
    const std::string directory = tree->Path("<host>");
    Append(directory + "/file_migrate_ab.txt", Line("ISDIR", "/data/\"<b>&\x1b", 2, "101530"));
    Append(directory + "/file_migrate_ab.txt", Line("RMDIR", "/data/n", 5, "121531"));
    const std::string page = RunTool("records --html --directory '" + directory + "'", "LC_ALL=C.UTF-8").out;
    const std::string one =
        "<li>2026-11-21 10:15:30 <em>ENOENT</em> ask whether it is a directory on &lt;host&gt;<br>"
        "<code>/data/&quot;&lt;b&gt;&amp;\\x1b</code><br>/data/&quot;&lt;b&gt;&amp;\\x1b ";
    const std::string other = "<li>2026-11-21 12:15:31 <em>EIO</em> ";
    const auto head = [](const std::string& name, int count, int share) {
        return "<details><summary><b>" + std::to_string(count) + "</b><span style=\"--share:" + std::to_string(share) +
               "%\">" + name + "</span></summary>\n<ul>\n";
    };
    std::size_t at = 0;
    for (const std::string& part :
         {std::string("<meta charset=\"UTF-8\">"), std::string("default-src 'none'"),
          std::string("2 records of 1 machine"),
          std::string("<rect x=\"1\" y=\"0\" width=\"8\" height=\"100\"><title>2026-11-21 10:00: 1</title></rect>\n"
                      "<rect x=\"11\" y=\"100\" width=\"8\" height=\"0\"><title>2026-11-21 11:00: 0</title></rect>\n"
                      "<rect x=\"21\" y=\"0\" width=\"8\" height=\"100\"><title>2026-11-21 12:00: 1</title></rect>\n"
                      "</svg>"),
          head("2026-11-21 10:00", 1, 100) + one, head("2026-11-21 12:00", 1, 100) + other,
          head("io-error", 1, 100) + other, head("source-missing", 1, 100) + one, head("&lt;host&gt;", 2, 100) + one,
          std::string("</html>\n")}) {
        at = page.find(part, at);
        ASSERT_NE(at, page.npos) << part << "\n" << page;
    }
    EXPECT_EQ(page.find("<script"), page.npos);
    EXPECT_EQ(page.find("http"), page.find("http-equiv"));
    EXPECT_EQ(RunTool("records --html --by cause").status, 2);
}

TEST_F(RecordsCommand, FormsColoursAndPager) {
    const std::string record = Line("ISDIR", "/data/$(n)\x1b", 2, "101530"), file = tree->File("r.txt", record);
    std::string many;
    for (int i = 0; i < 2000; ++i) {
        many += record;
    }
    const std::string plain = "2026-11-21 10:15:30  ENOENT     ask whether it is a directory  /data/$(n)\\x1b";
    const std::string coloured =
        "\x1b[2m2026-11-21 10:15:30\x1b[0m  \x1b[31mENOENT\x1b[0m     ask whether it is a directory  "
        "/data/$(n)\\x1b";
    const std::string verbose = RunTool("records -v " + file).out, lines = RunTool("records --json " + file).out;
    const std::string terminal = "TERM=xterm script -qec '", end = "' /dev/null";
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"", "-o short", plain + "\n"},
        {"", "-o verbose", verbose},
        {"", "-o json", lines},
        {"", "--json -v", lines},
        {"PAGER='sed s/^/P:/'", "", plain + "\n"},
        {"NO_COLOR=1", "--color always", coloured + "\n"},
        {"PAGER= " + terminal, end, coloured + "\r\n"},
        {"PAGER= NO_COLOR=1 " + terminal, end, plain + "\r\n"},
        {"PAGER= " + terminal, "--color never" + end, plain + "\r\n"},
        {"PAGER='sed s/^/P:/' " + terminal, end, "P:" + coloured + "\r\n"},
        {"PAGER='cat >/dev/null; echo $LESS $LESSSECURE' " + terminal, end, "FRSX 1\r\n"},
        {"PAGER='head -n 1' TERM=xterm timeout 20 script -qec '", tree->File("many.txt", many) + end,
         coloured + "\r\n"},
        {"PAGER='sed s/^/P:/' " + terminal, "--no-pager --color never" + end, plain + "\r\n"},
        {"PAGER='sed s/^/P:/' " + terminal, "--errno 13" + end,
         "orvanectl: records: 1 record, none of them matches\r\n"},
    };
    for (const auto& [prefix, words, out] : rows) {
        const Finished run = RunTool("records " + file + " " + words, prefix);
        EXPECT_EQ(run.out, out) << prefix << words;
        EXPECT_NE(run.status, 124) << "timed out: " << prefix << words;
    }
    const std::string wide =
        tree->File("wide.txt", Line("RMDIR", "/a", 36, "101530") + Line("RMDIR", "/b", 2, "101530"));
    const std::string lineOfA = "2026-11-21 10:15:30  ENAMETOOLONG  remove directory  /a\n";
    const std::string lineOfB = "2026-11-21 10:15:30  ENOENT        remove directory  /b\n";
    EXPECT_EQ(RunTool("records " + wide).out, lineOfA + lineOfB);
    EXPECT_EQ(RunTool("records -r " + wide).out, lineOfB + lineOfA);
    for (const std::string words : {"-o pretty", "-o json --json", "-o short -v", "--color blue"}) {
        EXPECT_EQ(RunTool("records " + words).status, 2) << words;
    }
}

TEST_F(RecordsCommand, EscapesAllBytesOfRecords) {
    const std::string first = "type:INVALID_CMD,cmd:99,times:20261121101529;";
    const std::string file = tree->File("r.txt", first + "junk\x1b" + std::string(300'000, 'x') +
                                                     Line("ISDIR", "/data/\x1b[31m\xff\n→\\\u202e", 2, "101530"));
    const Finished table = RunTool("records -v --type ISDIR " + file, "LC_ALL=C.UTF-8");
    EXPECT_EQ(table.out.substr(0, 32), "2026-11-21 10:15:30  ENOENT     ");
    EXPECT_NE(table.out.find("/data/\\x1b[31m\\xff\\x0a→\\\\\\xe2\\x80\\xae\n"), table.out.npos) << table.out;
    EXPECT_EQ(table.err, "orvanectl: " + file + ": skipped 300005 bytes at offset " + std::to_string(first.size()) +
                             ": junk\\x1b" + std::string(35, 'x') + "...\n");
    EXPECT_EQ(json::parse(RunTool("records --json --type ISDIR " + file).out)["src_hex"],
              "2f646174612f1b5b33316dff0ae286925ce280ae");
    Append(file, "type:MOVE,src:/a,dst:/b,user:,group:,perm:,recurseOpt:,errno:1,times:20261121101530;");
    EXPECT_NE(RunTool("records " + file, "LC_ALL=C.UTF-8").out.find("/a → /b\n"), std::string::npos);
    EXPECT_NE(RunTool("records " + file, "LC_ALL=C").out.find("/a -> /b\n"), std::string::npos);
}

TEST_F(RecordsCommand, ReadsAllFilesInOrderOfTime) {
    EXPECT_NE(RunTool("records").err.find("there are no records"), std::string::npos);
    const std::string rotated = std::regex_replace(RECORD_FILE_AB, std::regex("\\.txt"), "_2026112110153");
    Append(RECORD_FILE_UPDATE, Line("ISDIR", "/data/n3", 2, "101533"));
    Append(RECORD_FILE_ZELTO, Line("ISDIR", "/data/n1", 2, "101531") + Line("ISDIR", "/data/n4", 2, "101530"));
    Append(rotated + "0.txt", "");
    Append(rotated + "2.txt", Line("ISDIR", "/data/n2", 2, "101532"));
    Append(rotated + "1.txt", Line("ISDIR", "/data/n0", 2, "101530"));
    Append(RECORD_FILE_AB, Line("ISDIR", "/data/n5", 13, "101534"));
    EXPECT_EQ(Numbers(RunTool("records").out), "0 1 4 2 3 5 ");
    const Finished summary = RunTool("records --summary");
    EXPECT_TRUE(std::regex_search(summary.out, std::regex(" 5 .* ENOENT +[^\n]*\n +1 .* EACCES"))) << summary.out;
    fs::permissions(RECORD_FILE_AB, fs::perms::none);
    const Finished other = RunTool("records", WITHOUT_PRIVILEGE);
    EXPECT_EQ(Numbers(other.out), "0 1 4 2 3 ");
    const std::string hint = ": EACCES (Permission denied): run this as root\n";
    EXPECT_EQ(std::to_string(other.status) + other.err, "1orvanectl: " + std::string(RECORD_FILE_AB) + hint);
    const std::string directory = fs::path(RECORD_FILE_AB).parent_path();
    fs::permissions(directory, fs::perms::none);
    EXPECT_EQ(RunTool("records", WITHOUT_PRIVILEGE).err, "orvanectl: " + directory + hint);
    fs::permissions(directory, fs::perms::owner_all);
}

/// Whole outputs: programs read every key.
TEST_F(RecordsCommand, PrintsRecordsAndSummariesAsJson) {
    const std::string file = tree->Path("r.txt");
    for (int i = 0; i < 3000; ++i) {
        Append(file, Line("ISDIR", "/data/a/n" + std::to_string(i), 2, "101530"));
    }
    const auto size = fs::file_size(file);
    Append(file,
           "type:CHOWN,src:/data/\u2067b/n,dst:,user:7,group:8,perm:,recurseOpt:,errno:95,times:20261121111213;"
           "lstat /data/\u2067b/n:errno=2;llistxattr /data/\u2067b/n:errno=2;/data/\u2067b/n realpath errno=2;"
           "file_migrate_orvane proc stat:euid(9),egid(8),eff(0x00),perm(0x01),inh(0x10);");
    EXPECT_EQ(
        RunTool("records -n 1 --json " + file).out,
        R"({"time":"2026-11-21T11:12:13","type":"CHOWN","failure":"change owner","errno":95,"error":"EOPNOTSUPP",)"
        R"("src":"/data/\u2067b/n","dst":"","user":"7","group":"8","perm":"","recurseOpt":"","refused":null,)"
        R"("cause":null,"cause_path":null,"likely_cause":null,"to_check":null,"ambiguous":false,"cut":false,)"
        R"("snapshots":[{"kind":"stat","path":"/data/\u2067b/n","errno":2,"error":"ENOENT"},)"
        R"({"kind":"attribute","path":"/data/\u2067b/n","errno":2,"error":"ENOENT"},)"
        R"({"kind":"flags","path":"/data/\u2067b/n","errno":2,"error":"ENOENT","step":"realpath"},)"
        R"({"kind":"process","errno":0,"error":null,"euid":9,"egid":8,)"
        R"("effective":{"digits":"00","readings":[{"bits":"0x0000000000000000","names":"none"}]},)"
        R"("permitted":{"digits":"01","readings":[{"bits":"0x0000000000000001","names":"cap_chown"}]},)"
        R"("inheritable":{"digits":"10","readings":[{"bits":"0x0000000100000000","names":"cap_mac_override"}]}}],)"
        R"("file":")" +
            file + R"(","offset":)" + std::to_string(size) + ",\"length\":262}\n");
    const std::string first = R"("first":"2026-11-21T10:15:30","last":"2026-11-21T10:15:30"})";
    const std::string last = R"("first":"2026-11-21T11:12:13","last":"2026-11-21T11:12:13"})";
    EXPECT_EQ(RunTool("records --summary --json " + file).out,
              R"({"count":3001,"first":"2026-11-21T10:15:30","last":"2026-11-21T11:12:13","failures":[{"type":"ISDIR",)"
              R"("failure":"ask whether it is a directory","errno":2,"error":"ENOENT","count":3000,)" +
                  first + R"(,{"type":"CHOWN","failure":"change owner","errno":95,"error":"EOPNOTSUPP","count":1,)" +
                  last + R"(],"directories":[{"directory":"/data/a","count":3000,)" + first +
                  R"(,{"directory":"/data/\u2067b","count":1,)" + last + "]}\n");
    const std::string page = RunTool("records --html " + file).out;
    EXPECT_TRUE(page.find("n2950<") != page.npos && page.find("n2949<") == page.npos) << "the last 50 of each group";
    EXPECT_NE(RunTool("records -n 1 " + file, "LC_ALL=C.UTF-8").out.find("\\xe2\\x81\\xa7b/n"), std::string::npos);
    const Finished full = RunTool("records " + file, "exec 3>/dev/full; out() { \"$@\" >&3; }; out");
    EXPECT_EQ(full.err, "orvanectl: records: cannot write to standard output\n");
    EXPECT_EQ(full.status, 1);
    // The last record waits, because another snapshot could follow.
    Append(file, "type:CHMOD,src:/n,dst:,user:,group:,perm:640,recurseOpt:,errno:95,times:20261121111213;");
    EXPECT_EQ(Numbers(RunTool("records -f " + file + " | head -n 2", "timeout 9").out), "2991 2992 ");
}

TEST_F(RecordsCommand, FollowsAWriterAcrossRotations) {
    const auto line = [](int i) { return Line("ISDIR", "/data/n" + std::to_string(i), 2, "101530"); };
    const std::string file = tree->Path("r.txt"), started = tree->Path("started");
    std::string expected;
    for (int i = 1; i <= 300; ++i) {
        expected += i < 11 ? "" : std::to_string(i) + " ";
        Append(file, i <= 21 ? line(i) : "");
    }
    std::thread writer([&] {
        for (int i = 0; i < 1000 && !fs::exists(started); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        for (int i = 22; i <= 300; ++i) {
            if (i % 25 == 0) {
                fs::rename(file, tree->Path("r_202611211015" + std::to_string(10 + i / 25) + ".txt"));
            }
            Append(file, line(i).substr(0, i % 50 == 3 ? 20 : 200));
            std::this_thread::sleep_for(std::chrono::milliseconds(i % 10 == 3 ? 30 : 0));
            Append(file, i % 50 == 3 ? line(i).substr(20) : "");
        }
    });
    // It shows the last ten whole records first; the 21st is not known to be whole yet. The tool ends with its reader.
    const std::string reader = " | { read -r first; touch " + started + "; echo \"$first\"; sed '/n300 *$/q'; }";
    EXPECT_EQ(Numbers(RunTool("records -f " + file + reader, "timeout 60").out), expected);
    writer.join();
    // A file that became shorter is read from its beginning, after its last record, which could still have grown.
    const std::string cut = tree->File("cut.txt", line(1) + line(2));
    const std::string cutting = "{ read -r first; printf '%s' '" + line(3) + "' >" + cut + "; sed '/n3 *$/q'; }";
    EXPECT_EQ(Numbers(RunTool("records -f " + cut + " | " + cutting, "timeout 60").out), "2 3 ");
    const std::string why = tree->Path("why"), gone = " 2>" + why + " | true";
    (void)RunTool("records -f" + gone);
    EXPECT_TRUE(ReadFile(why).starts_with("orvanectl: records: there are no records; none of these files exists:\n"));
    (void)RunTool("records -f " + file + gone);
    EXPECT_EQ(ReadFile(why), "");
}

TEST_F(RecordsCommand, FailureWithCauseAndDump) {
    const std::string file = tree->File("a", std::string(5000, 'x'), 0640);
    ASSERT_EQ(chown(file.c_str(), 7, 9), 0);
    tree->MakeImmutable(file);
    EXPECT_EQ(Call({.cmd = Command::MoveAll, .src = tree->Path("a"), .dst = tree->Path("b")}).result, -1);
    const std::regex varies("^[0-9: -]{19}|(ino|dev) [0-9:]+|(flags|capabilities) [^\n]*");
    EXPECT_EQ(std::regex_replace(RunTool("records -v", "LC_ALL=C").out, varies, "#"),
              Expand("#  EPERM      rename            @/a -> @/b\n"
                     "    likely cause: the source @/a has the immutable flag\n"
                     "    source @/a\n"
                     "      -rw-r----- 7:9 5000 B 16 blocks # #\n"
                     "      attributes: none, or not listed\n"
                     "      inode #\n"
                     "    destination @/b\n"
                     "      ENOENT (No such file or directory)\n"
                     "    parent directory @\n"
                     "      drwxr-xr-x 0:0 4096 B 8 blocks # #\n"
                     "      attributes: none, or not listed\n"
                     "      inode #\n"
                     "    the daemon\n"
                     "      euid 0 egid 0\n"
                     "      effective and permitted #\n"
                     "      inheritable #\n"));
    const json record = json::parse(RunTool("records --json").out);
    for (const std::string_view field : RecordKey::STAT_FIELDS) {
        const json& value = record["snapshots"][0][field.substr(1, field.size() - 2)];
        EXPECT_NE(ReadFile(RECORD_FILE_AB).find(std::string(field) + value.dump()), std::string::npos) << field;
    }
    const std::string name = "MOVE@" + std::regex_replace(std::string(record["time"]), std::regex("[-T:]"), "");
    Append(DUMP_DIRECTORY + ("/" + name), "denied \x1b[2J\n");
    EXPECT_NE(RunTool("dumps").out.find("  EPERM      rename            " + tree->Path("a")), std::string::npos);
    EXPECT_NE(RunTool("dumps " + name).out.find("denied \\x1b[2J\n"), std::string::npos);
    EXPECT_EQ(json::parse(RunTool("dumps --json " + name).out)["record"]["src"], tree->Path("a"));
    EXPECT_EQ(json::parse(RunTool("dumps --json MOVE").out)["error"], "ENOENT");
    Append(DUMP_DIRECTORY + std::string("/COPY@20261121101530"), "");
    EXPECT_NE(RunTool("dumps COPY@20261121101530").err.find(": empty: "), std::string::npos);
    fs::permissions(RECORD_FILE_AB, fs::perms::none);
    const Finished other = RunTool("dumps", WITHOUT_PRIVILEGE);
    EXPECT_TRUE(other.status == 1 && other.out.find("  unknown record\n") != other.out.npos) << other.out;
    EXPECT_NE(RunTool("dumps MOVE").err.find("the dumps are:\n  COPY@20261121101530\n  " + name), std::string::npos);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
