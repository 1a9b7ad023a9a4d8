// Trees whose owner is hostile and running: while a request works in one, entries of it are exchanged for links to a
// tree outside and for pipes, or gone. Nothing outside may change or be copied, and every request is answered.
//
// FILE_MIGRATE_RACE_SECONDS is the time for each row of the table, half a second where it is not set.
#include <fcntl.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <utility>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

namespace fs = std::filesystem;
using enum Command;
using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;
using Pair = std::pair<std::string, std::string>;
using Pairs = std::vector<Pair>;

constexpr const char* SECRET = "what only root may read";
const char* const kSeconds = std::getenv("FILE_MIGRATE_RACE_SECONDS");
const Deadline kTime{kSeconds != nullptr ? 1000 * std::stol(kSeconds) : 500};
constexpr Deadline LIMIT{20000};  ///< for one request on a few files

/// Leaves the attacker a millisecond to exchange a new directory, whatever the scheduler does.
const DaemonOptions kSlowMkdir{
    {}, {"strace", "-fqqo/dev/null", "-etrace=mkdir,mkdirat", "-einject=mkdir,mkdirat:delay_exit=1000"}};

bool Exchange(const Pair& objects) {
    return renameat2(AT_FDCWD, objects.first.c_str(), AT_FDCWD, objects.second.c_str(), RENAME_EXCHANGE) == 0;
}

/// Takes the first object away and puts it back; in between its name stands for nothing, the second object, and
/// nothing.
bool TakeAway(const Pair& objects) {
    const auto& [name, other] = objects;
    const std::string aside = other + ".aside";
    const bool isAway = rename(name.c_str(), aside.c_str()) == 0 && link(other.c_str(), name.c_str()) == 0;
    unlink(name.c_str());
    rename(aside.c_str(), name.c_str());
    return isAway;
}

/// For a path "@" is the tree on /data and "~" the one on the second file system.
struct Row {
    const char* name;
    Request request;
    const char* attacked;  ///< the directory whose entries are exchanged
    bool isThere = true;   ///< it has them; otherwise the request makes the one that is exchanged
    bool (*attack)(const Pair&) = Exchange;
};

/// A thread that attacks the objects of each pair in turn, as fast as it can, until its end.
/// @param swaps  the thread's until it has ended
std::jthread Attack(const Pairs& pairs, auto attack, long& swaps) {
    return std::jthread([pairs, attack, &swaps](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            swaps += std::count_if(pairs.begin(), pairs.end(), attack);
        }
    });
}

/// The same names in every tree, so that what is done to an entry in one fits the other.
void Grow(const std::string& top, const char* content) {
    fs::create_directories(top + "/d/e");
    for (const std::string directory : {"", "/d", "/d/e"}) {
        for (const char* name : {"/f", "/g", "/1", "/2", "/3", "/4", "/5", "/6"}) {
            std::ofstream(top + directory + name) << content;
        }
    }
}

/// Each object with what tells of any change: ctime goes with content, owner, mode and attributes.
Strings States(const ScratchTree& tree) {
    Strings states;
    for (const auto& entry : fs::recursive_directory_iterator(tree.Path())) {
        const timespec changed = Lstat(entry.path()).st_ctim;
        states.push_back(entry.path().string() + std::to_string(changed.tv_sec * 1'000'000'000 + changed.tv_nsec));
    }
    std::ranges::sort(states);
    return states;
}

long CountSecrets(const ScratchTree& tree) {
    return std::count_if(fs::recursive_directory_iterator(tree.Path()), {}, [](const fs::directory_entry& entry) {
        return entry.symlink_status().type() == fs::file_type::regular && ReadFile(entry.path()) == SECRET;
    });
}

class RaceTest : public DaemonTest {
protected:
    [[nodiscard]] std::string Expand(const std::string& path) const {
        return path.empty() ? "" : (path[0] == '~' ? *second : *tree).Path() + path.substr(1);
    }

    /// Makes the objects of a round. @return what is to be exchanged
    Pairs Prepare(const Row& row) {
        tree.emplace();
        second.emplace(ScratchTree::On::SecondFs);
        const std::string top = Expand(row.attacked);
        fs::create_directories(top);
        fs::create_symlink(outside->Path("d"), top + ".d");
        if (!row.isThere) {
            return {{top + "/d", top + ".d"}};
        }
        Grow(tree->Path("s"), "content");
        Grow(top, "content");
        fs::create_directories(tree->Path("t"));
        fs::create_symlink(outside->Path("f"), top + ".f");
        EXPECT_EQ(mkfifo((top + ".g").c_str(), 0644), 0);
        return {{top + "/d", top + ".d"}, {top + "/f", top + ".f"}, {top + "/g", top + ".g"}};
    }

    /// Makes a request under attack. False if no answer comes in time.
    bool Answers(Request request, const Pairs& pairs, long& swaps, bool (*attack)(const Pair&) = Exchange) {
        request.src = Expand(request.src);
        request.dst = Expand(request.dst);
        const std::jthread attacker = Attack(pairs, attack, swaps);
        RawClient client;
        client.Send(request);
        return client.Receive(LIMIT).has_value();
    }

    /// With each pair exchanged once before the request, then with all of them while it runs.
    void Check(const Row& row) {
        Grow(outside.emplace().Path(), SECRET);
        const Strings before = States(*outside);
        Start(row.isThere ? DaemonOptions{} : kSlowMkdir);
        std::size_t rounds = 0;
        long swaps = 0, copied = 0;
        bool isAnswered = true;
        for (const auto end = Clock::now() + kTime; isAnswered && Clock::now() < end; ++rounds) {
            Pairs pairs = Prepare(row);
            if (row.isThere && rounds < pairs.size()) {
                EXPECT_TRUE(Exchange(pairs[rounds]));
                pairs.clear();
            }
            isAnswered = Answers(row.request, pairs, swaps, row.attack);
            copied += CountSecrets(*tree) + CountSecrets(*second);
        }
        Strings differences;
        std::ranges::set_symmetric_difference(before, States(*outside), std::back_inserter(differences));
        printf("%-36s %6zu rounds %8ld swaps: %zu differences outside, %ld files copied%s\n", row.name, rounds, swaps,
               differences.size(), copied, isAnswered ? "" : ", HUNG");
        EXPECT_TRUE(isAnswered && differences.empty() && copied == 0 && swaps > 0) << row.name;
    }

    std::optional<ScratchTree> second, outside;
};

TEST_F(RaceTest, NothingOutsideIsTouchedOrCopied) {
    const Row rows[] = {
        {"chown", {ChOwn, "@/s", "", "1", "2", "", 2}, "@/s"},
        {"chmod", {ChMod, "@/s", "", "", "", "750", 2}, "@/s"},
        {"remove", {Remove, "@/s"}, "@/s"},
        {"remove, going on", {TryRemove, "@/s"}, "@/s"},
        {"copy, source", {CopyAll, "@/s", "@/t"}, "@/s"},
        {"copy, destination", {CopyAll, "@/s", "@/t"}, "@/t"},
        {"copy of children, destination", {CopySub, "@/s", "@/t"}, "@/t"},
        {"copy, destination gone", {CopyAll, "@/s", "@/t"}, "@/t", true, TakeAway},
        {"copy of children, destination gone", {CopySub, "@/s", "@/t"}, "@/t", true, TakeAway},
        {"move by copy, source", {MoveAll, "@/s", "~/t"}, "@/s"},
        {"move by copy, destination", {MoveAll, "@/s", "~/t"}, "~/t"},
        {"move by copy, destination gone", {MoveAll, "@/s", "~/t"}, "~/t", true, TakeAway},
        {"move of children, source", {MoveSub, "@/s", "~"}, "@/s"},
        {"move of children, destination", {MoveSub, "@/s", "~/t"}, "~/t"},
        {"move of children, destination gone", {MoveSub, "@/s", "~/t"}, "~/t", true, TakeAway},
        {"combined copy, source", {CopyComb, "@/s", "@/t", "1", "2", "750"}, "@/s"},
        {"combined copy, destination", {CopyComb, "@/s", "@/t", "1", "2", "750"}, "@/t"},
        {"combined copy, destination gone", {CopyComb, "@/s", "@/t", "1", "2", "750"}, "@/t", true, TakeAway},
        {"prepare a directory", {PrepareDir, "@/p/d", "", "1", "2", "777", 1}, "@/p", false},
        {"prepare with ancestors", {PrepareDir, "@/p/d/x/y", "", "1", "2", "777", 2}, "@/p", false},
        {"mkdir with ancestors", {MkDir, "@/p/d/x/y", "", "", "", "", 2}, "@/p", false},
    };
    std::ranges::for_each(rows, [this](const Row& row) { Check(row); });
}

/// Who owns a directory can also give the name of a new one to one of root's that it holds.
TEST_F(RaceTest, OnlyTheDirectoryThatWasMadeIsGivenAway) {
    const std::string closed = tree->Dir("closed", 0700), made = tree->Path("made");
    tree->File("closed/file");
    const auto inode = Lstat(closed).st_ino;
    std::this_thread::sleep_for(Deadline{1100});  // births are compared in seconds
    Start(kSlowMkdir);
    long swaps = 0;
    for (const auto end = Clock::now() + kTime; Clock::now() < end; fs::remove_all(made)) {
        EXPECT_TRUE(Answers({PrepareDir, "@/made", "", "1", "2", "777", 1}, {{made, closed}}, swaps));
        EXPECT_TRUE(Lstat(closed).st_ino == inode || Exchange({made, closed}));
    }
    const struct stat st = Lstat(closed);
    EXPECT_TRUE(swaps > 0 && st.st_uid == 0 && st.st_mode == (S_IFDIR | 0700)) << swaps;
}

/// A user can put a directory of his own in the place of root's that stands in his, and wait for a copy that is his;
/// or one of root's in the place of what was copied, a directory or a file, and wait for its removal.
TEST_F(RaceTest, WhatRootHasInAUsersTreeStaysRoots) {
    const DaemonOptions slowFlush{
        {}, {"strace", "-fqqo/dev/null", "-etrace=syncfs", "-einject=syncfs:delay_enter=1000000"}};
    const struct {
        const char* copied;
        bool isAtFlush;
        long files;  ///< that are copied
    } rows[] = {{"s/roots", false, 24}, {"s/roots", true, 24}, {"s/roots/f", true, 1}};
    for (const auto& [copied, isAtFlush, files] : rows) {
        tree.emplace();
        second.emplace(ScratchTree::On::SecondFs);
        const std::string source = tree->Path(copied), own = tree->Path("own"), made = second->Path("made");
        Grow(tree->Path("s/roots"), SECRET);
        Grow(own, SECRET);
        EXPECT_EQ(isAtFlush ? 0 : chown(own.c_str(), 1, 1), 0);
        Start(isAtFlush ? slowFlush : kSlowMkdir);
        long swaps = 0;
        const auto once = [&, isAtFlush = isAtFlush, files = files](const Pair& objects) {
            if (swaps != 0 || (isAtFlush ? CountSecrets(*second) < files : !fs::exists(made + "/d"))) {
                return false;
            }
            std::this_thread::sleep_for(Deadline{isAtFlush ? 200 : 0});
            return Exchange(objects);
        };
        std::jthread attacker = Attack({{source, own}}, once, swaps);
        EXPECT_EQ(Call({MoveAll, source, made}).errCode, ESTALE);
        attacker = {};
        EXPECT_TRUE(swaps == 1 && CountSecrets(*tree) == 48 && Lstat(made).st_uid == 0) << copied;
        EXPECT_EQ(std::ssize(Found("Remove " + source + " failed")), isAtFlush ? 1 : 0);
    }
}

/// Through a mount a place inside the source does not look like one.
TEST_F(RaceTest, WhatIsCopiedIntoItselfByAMountIsNotLost) {
    for (const auto& [cmd, name] :
         {std::pair{CopyAll, "/t"}, {CopyAll, "/new"}, {CopyAll, ""}, {CopyComb, "/t"}, {CopyComb, ""}}) {
        tree.emplace();
        const std::string kept = tree->Dir("s/in/t"), in = tree->Path("s/in"), mounted = tree->Dir("mounted");
        EXPECT_NE(tree->File("s/f", SECRET), tree->File("s/in/g", SECRET));
        if (mount(in.c_str(), mounted.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            GTEST_SKIP() << "needs privilege: a mount";
        }
        const Reply reply = Call({cmd, tree->Path("s"), mounted + name, "1", "2", "750"});
        umount2(mounted.c_str(), MNT_DETACH);
        EXPECT_TRUE(reply.result == -1 && reply.errCode == EINVAL && fs::exists(kept)) << name << reply.errCode;
        EXPECT_TRUE(CountSecrets(*tree) >= 2 && (cmd == CopyComb || !fs::exists(in + name + "/in" + name))) << name;
    }
}

/// A tree deeper than the descriptors reach is not to fill the log with its paths.
TEST_F(RaceTest, WhatStaysIsToldWhileItsPathIsOfUse) {
    Start({{}, {"prlimit", "--nofile=64"}});
    const std::string top = tree->Dir("d"), name(200, 'n');
    UniqueFd directory(open(top.c_str(), O_PATH));
    for (int level = 0; level < 100 && mkdirat(directory.Get(), name.c_str(), 0755) == 0; ++level) {
        directory = UniqueFd(openat(directory.Get(), name.c_str(), O_PATH));
    }
    EXPECT_EQ(Call({TryRemove, top}).errCode, ENOTEMPTY);
    EXPECT_EQ(std::ssize(Found("rmdir /")), 1 + (PATH_MAX - 1 - std::ssize(top)) / (std::ssize(name) + 1));
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
