// Requests on a tree that its owner attacks while they run. A second thread swaps entries for links to a tree outside
// or for pipes, or takes them away. Nothing outside may change or be copied, and every request must get its answer.
//
// FILE_MIGRATE_RACE_SECONDS sets the time for each row of the table. The default is a fifth of a second.
#include <fcntl.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <tuple>
#include <utility>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using enum Command;
using Clock = std::chrono::steady_clock;
using Pair = std::pair<std::string, std::string>;
using Pairs = std::vector<Pair>;

constexpr const char* SECRET = "what only root may read";
const char* const kSeconds = std::getenv("FILE_MIGRATE_RACE_SECONDS");
const Deadline kTime{kSeconds != nullptr ? 1000 * std::stol(kSeconds) : 200};

/// Delays the return of each mkdir by a millisecond, so that the attacker can swap the new directory before the daemon
/// opens it.
const DaemonOptions kSlowMkdir{
    {}, {"strace", "-fqqo/dev/null", "-etrace=mkdir,mkdirat", "-einject=mkdir,mkdirat:delay_exit=1000"}};

bool Exchange(const Pair& objects) {
    return renameat2(AT_FDCWD, objects.first.c_str(), AT_FDCWD, objects.second.c_str(), RENAME_EXCHANGE) == 0;
}

/// Moves the first object aside and back. Meanwhile its name is first missing, then a hard link to the second object,
/// then missing again.
bool TakeAway(const Pair& objects) {
    const auto& [name, other] = objects;
    const std::string aside = other + ".aside";
    const bool isAway = rename(name.c_str(), aside.c_str()) == 0 && link(other.c_str(), name.c_str()) == 0;
    unlink(name.c_str());
    rename(aside.c_str(), name.c_str());
    return isAway;
}

struct Row {
    std::string name;
    Request request;
    const char* attacked;  ///< the directory whose entries are swapped
    bool isThere = true;  ///< whether its entries exist beforehand; if not, the request creates the one that is swapped
    bool (*attack)(const Pair&) = Exchange;
    bool isLarge = false;  ///< so large that several threads walk it
};

/// Fills a tree. All trees have the same names, so that a walk that strays into another tree finds what it looks for.
void Grow(const std::string& top, const char* content) {
    fs::create_directories(top + "/d/e");
    for (const std::string directory : {"", "/d", "/d/e"}) {
        for (const char* name : {"/f", "/g", "/1", "/2", "/3", "/4", "/5", "/6"}) {
            std::ofstream(top + directory + name) << content;
        }
    }
}

/// Each object's path and ctime, which changes with content, owner, mode and attributes.
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

struct RaceTest : DaemonTest {
    /// Creates the trees for a round. @return the pairs to attack
    Pairs Prepare(const Row& row) {
        NewTrees();
        const std::string top = Expand(row.attacked);
        fs::create_directories(top);
        fs::create_symlink(outside->Path("d"), top + ".d");
        if (!row.isThere) {
            return {{top + "/d", top + ".d"}};
        }
        Grow(tree->Path("s"), "content");
        Grow(top, "content");
        for (int i = 0; row.isLarge && i < 20; ++i) {
            Grow(tree->Path("s/more") + std::to_string(i), "content");
            Grow(top + "/more" + std::to_string(i), "content");
        }
        fs::create_directories(tree->Path("t"));
        fs::create_symlink(outside->Path("f"), top + ".f");
        EXPECT_EQ(mkfifo((top + ".g").c_str(), 0644), 0);
        return {{top + "/d", top + ".d"}, {top + "/f", top + ".f"}, {top + "/g", top + ".g"}};
    }

    /// Sends a request while a thread attacks each pair in turn, as fast as it can.
    /// @param swaps  the successful attacks are added to it
    /// @return whether the answer came in time
    bool Answers(const Request& request, const Pairs& pairs, long& swaps, bool (*attack)(const Pair&) = Exchange) {
        const std::jthread attacker([&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                swaps += std::ranges::count_if(pairs, attack);
            }
        });
        RawClient client;
        client.Send(Expand(request));
        return client.Receive().has_value();
    }

    /// Runs a row until its time is over. In the first rounds one pair is swapped before the request, in the others all
    /// pairs are attacked while it runs.
    void Check(const Row& row) {
        Grow(outside.emplace().Path(), SECRET);
        const Strings before = States(*outside);
        if (!daemon) {
            Start(row.isThere ? DaemonOptions{} : kSlowMkdir);
        }
        std::size_t rounds = 0;
        long swaps = 0, copied = 0;
        bool isAnswered = true;
        // A busy machine may not run the attacker in time, so a row goes on until there was a swap.
        for (const auto end = Clock::now() + kTime; isAnswered && (Clock::now() < end || (swaps == 0 && rounds < 500));
             ++rounds) {
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
        EXPECT_TRUE(isAnswered && differences.empty() && copied == 0 && swaps > 0)
            << row.name << ": " << isAnswered << differences.size() << ' ' << copied << ' ' << swaps;
    }

    std::optional<ScratchTree> outside;
};

TEST_F(RaceTest, NothingOutsideTheTreeIsChangedOrCopied) {
    // In the last column: l for a large tree too, g for entries that are gone meanwhile, n for a new directory only.
    const std::tuple<std::string, Request, const char*, std::string> rows[] = {
        {"chown", {ChOwn, "@/s", "", "1", "2", "", 2}, "@/s", "l"},
        {"chmod", {ChMod, "@/s", "", "", "", "750", 2}, "@/s", "l"},
        {"remove", {Remove, "@/s"}, "@/s", "l"},
        {"remove, keep going", {TryRemove, "@/s"}, "@/s", "l"},
        {"copy, source", {CopyAll, "@/s", "@/t"}, "@/s", "l"},
        {"copy, destination", {CopyAll, "@/s", "@/t"}, "@/t", "lg"},
        {"copy of children, destination", {CopySub, "@/s", "@/t"}, "@/t", "g"},
        {"move by copy, source", {MoveAll, "@/s", "~/t"}, "@/s", "l"},
        {"move by copy, destination", {MoveAll, "@/s", "~/t"}, "~/t", "lg"},
        {"move of children, source", {MoveSub, "@/s", "~"}, "@/s", ""},
        {"move of children, destination", {MoveSub, "@/s", "~/t"}, "~/t", "g"},
        {"combined copy, source", {CopyComb, "@/s", "@/t", "1", "2", "750"}, "@/s", "l"},
        {"combined copy, destination", {CopyComb, "@/s", "@/t", "1", "2", "750"}, "@/t", "lg"},
        {"prepare a directory", {PrepareDir, "@/p/d", "", "1", "2", "777", 1}, "@/p", "n"},
        {"prepare with ancestors", {PrepareDir, "@/p/d/x/y", "", "1", "2", "777", 2}, "@/p", "n"},
        {"mkdir with ancestors", {MkDir, "@/p/d/x/y", "", "", "", "", 2}, "@/p", "n"},
    };
    for (const auto& [name, request, attacked, ways] : rows) {
        for (const char way : ways == "n" ? ways : " " + ways) {
            daemon.reset();
            Check({name + " " + way, request, attacked, way != 'n', way == 'g' ? TakeAway : Exchange, way == 'l'});
        }
    }
}

TEST_F(RaceTest, NothingOutsideIsLabelled) {
    if (!StartWithLabels("/.* u:r:inside:s0\n")) {
        GTEST_SKIP() << "needs privilege: a mount namespace for a policy of its own";
    }
    Check({"restore labels", {Restorecon, "@/s", "", "", "", "", 2}, "@/s"});
    Check({"restore labels, large", {Restorecon, "@/s", "", "", "", "", 2}, "@/s", true, Exchange, true});
    Check({"restore labels, source gone", {Restorecon, "@/s", "", "", "", "", 2}, "@/s", true, TakeAway});
}

TEST_F(RaceTest, EntryThatVanishesNeedsNoLabel) {
    const std::string stop = std::string("strace -fqqo ") + CALLS + " -einject=getdents64:signal=STOP:when=1";
    if (!StartWithLabels("/.* u:r:inside:s0\n", stop)) {
        GTEST_SKIP() << "needs privilege: a mount namespace for a policy of its own";
    }
    ASSERT_TRUE(Shell("mkdir s; touch s/gone s/stays"));
    const Request request{Restorecon, "@/s", "", "", "", "", 2};
    EXPECT_EQ(CallInterrupted(request, [&] { EXPECT_TRUE(Shell("rm s/gone")); }).result, 0);
    EXPECT_TRUE(Found("restore label").empty());
}

/// The owner of a directory can swap the new directory for another one in the same place, or for a link to one. It has
/// content, or not the owner or the mode of a directory that the daemon has just created.
TEST_F(RaceTest, PrepareDirChangesOnlyTheDirectoryThatItCreated) {
    // The request's path, how the user puts in the other directory, how he makes it, and the error.
    const std::tuple<std::string, std::string, std::string, int> rows[] = {
        {"@/made", "mv", "chmod 700 other", EEXIST},
        {"@/made", "mv", "chmod 700 other; touch other/file", EEXIST},
        {"@/made", "mv", "chmod 1700 other; touch other/file", EEXIST},
        {"@/made", "mv", "chmod 1700 other; chown 1 other", EEXIST},
        {"@/made/", "ln -s", "chmod 1700 other", ENOTDIR}};
    for (const auto& [path, swap, set, errCode] : rows) {
        NewTrees();
        ASSERT_TRUE(Shell("mkdir other; " + set));
        const std::string look = "stat -Lc '%u %a' made";
        std::optional<std::string> before;
        StartStoppingAfter("mkdirat");
        const Reply reply = CallInterrupted({PrepareDir, path, "", "1", "2", "777", 1}, [&, command = swap] {
            before = Shell("rmdir made; " + command + " other made; " + look);
        });
        EXPECT_EQ(reply.errCode, errCode) << path << set;
        EXPECT_TRUE(before && Shell(look) == before) << path << set;
    }
}

/// Files with the secret that everybody may read, on ways that everybody may go, below a directory that everybody may
/// enter.
long CountReadable(const std::string& directory) {
    long count = 0;
    for (const auto& entry : fs::directory_iterator(directory)) {
        const auto others = fs::symlink_status(entry).permissions();
        if (entry.is_directory() && !entry.is_symlink()) {
            count += (others & fs::perms::others_exec) != fs::perms::none ? CountReadable(entry.path()) : 0;
        } else if ((others & fs::perms::others_read) != fs::perms::none && entry.is_regular_file()) {
            count += ReadFile(entry.path()) == SECRET;
        }
    }
    return count;
}

/// A user swaps his open directory for root's private one beside it, and his file for root's.
TEST_F(RaceTest, NothingPrivateArrivesReadable) {
    const std::pair<const char*, Request> rows[] = {
        {"copy", {CopyAll, "@/s", "@/t"}},
        {"copy of children", {CopySub, "@/s", "@/t"}},
        {"move by copy", {MoveAll, "@/s", "~/t"}},
        {"move of children", {MoveSub, "@/s", "~/t"}},
    };
    for (const auto& [name, request] : rows) {
        Start();
        long swaps = 0, readable = 0;
        for (const auto end = Clock::now() + kTime; Clock::now() < end || swaps == 0;) {
            tree.emplace();
            second.emplace(ScratchTree::On::SecondFs);
            Pairs pairs;
            for (const std::string n : {"1", "2", "3"}) {
                tree->File("s/open" + n + "/f");
                tree->File("s/closed" + n + "/f", SECRET);
                tree->File("s/file" + n);
                tree->File("s/secret" + n, SECRET, 0600);
                fs::permissions(tree->Path("s/closed" + n), fs::perms::owner_all);
                pairs.emplace_back(tree->Path("s/open" + n), tree->Path("s/closed" + n));
                pairs.emplace_back(tree->Path("s/file" + n), tree->Path("s/secret" + n));
            }
            fs::create_directory(Expand(request.dst));
            EXPECT_TRUE(Answers(request, pairs, swaps));
            readable += CountReadable(Expand(request.dst));
        }
        EXPECT_TRUE(readable == 0 && swaps > 0) << name;
    }
}

/// A directory of root's lies in a user's tree. First row: the user swaps it for a directory of his own during the
/// copy, hoping that the daemon gives him the copy of root's files. Other rows: the user swaps in another object of
/// root's after the copy, hoping that the daemon removes it.
TEST_F(RaceTest, MoveNeitherGivesAwayNorRemovesRootsFiles) {
    // What is swapped, after which system call, and the owner of what is swapped in.
    const std::tuple<std::string, std::string, uid_t> rows[] = {
        {"s/roots", "mkdirat", 1}, {"s/roots", "syncfs", 0}, {"s/roots/f", "syncfs", 0}};
    for (const auto& [copied, call, owner] : rows) {
        NewTrees();
        const std::string source = tree->Path(copied), own = tree->Path("own"), made = second->Path("made");
        Grow(tree->Path("s/roots"), SECRET);
        Grow(own, SECRET);
        EXPECT_EQ(chown(own.c_str(), owner, owner), 0);
        StartStoppingAfter(call);
        const Reply reply = CallInterrupted({MoveAll, source, made}, [&] { EXPECT_TRUE(Exchange({source, own})); });
        EXPECT_EQ(reply.errCode, ESTALE);
        EXPECT_TRUE(CountSecrets(*tree) == 48 && Lstat(made).st_uid == 0) << copied;
        EXPECT_EQ(std::ssize(Found("Remove " + source + " failed")), call == "syncfs" ? 1 : 0);
    }
}

/// A user swaps the directory that a copy has just created for an open one of his own.
TEST_F(RaceTest, CopyEndsWhenItsNewDirectoryIsSwapped) {
    StartStoppingAfter("mkdirat");
    const std::string made = tree->Path("made"), own = tree->Dir("own", 0777);
    tree->File("s/f", SECRET);
    const auto swap = [&] { EXPECT_TRUE(Exchange({made, own})); };
    EXPECT_EQ(CallInterrupted({CopyAll, "@/s", "@/made"}, swap), (Reply{-1, EEXIST}));
    EXPECT_EQ(CountSecrets(*tree), 1);
}

/// A user puts another file in the place of the one that a copy is about to overwrite.
TEST_F(RaceTest, CopyLooksAgainAtTheFileThatItOverwrites) {
    // The swap, the error, and whether the copy is a new file because the user may have opened the one he put there.
    const std::tuple<std::string, int, bool> rows[] = {
        {"ln -f s t", EEXIST, false}, {"mv others t", 0, true}, {"mv open t", 0, true}};
    for (const auto& [swap, errCode, isReplaced] : rows) {
        NewTrees();
        ASSERT_TRUE(Shell("echo secret >s; touch t open others; chmod 600 s t others; chmod 666 open; chown 1 others"));
        StartWithFault({"-P", Expand("@/t"), "-einject=newfstatat:signal=STOP:when=1"});
        ino_t found = 0;
        const Reply reply = CallInterrupted({CopyAll, "@/s", "@/t"}, [&, script = swap] {
            EXPECT_TRUE(Shell(script));
            found = Lstat(Expand("@/t")).st_ino;
        });
        EXPECT_EQ(reply.errCode, errCode) << swap;
        EXPECT_EQ(ReadFile(Expand("@/s")) + ReadFile(Expand("@/t")), "secret\nsecret\n") << swap;
        EXPECT_EQ(Lstat(Expand("@/t")).st_ino != found, isReplaced) << swap;
    }
}

/// Through a bind mount, the destination's path does not show that it lies inside the source. If a copy meets a pipe
/// before its destination, the second pass meets the destination. The file system's order of names decides that.
TEST_F(RaceTest, CopyIntoItselfThroughABindMountLosesNothing) {
    std::vector<std::tuple<Command, const char*, std::string>> rows = {
        {CopyAll, "/t", ""}, {CopyAll, "/new", ""}, {CopyAll, "", ""}, {CopyComb, "/t", ""}, {CopyComb, "", ""}};
    for (const char* pipe : {"1", "2", "3", "4", "5", "6", "7", "8"}) {
        rows.emplace_back(CopyAll, "/new", pipe);
    }
    for (const auto& [cmd, name, pipe] : rows) {
        tree.emplace();
        const std::string kept = tree->Dir("s/in/t"), in = tree->Path("s/in"), mounted = tree->Dir("mounted");
        EXPECT_NE(tree->File("s/f", SECRET), tree->File("s/in/g", SECRET));
        if (mount(in.c_str(), mounted.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            GTEST_SKIP() << "needs privilege: a mount";
        }
        ASSERT_TRUE(pipe.empty() || Shell("mkfifo s/" + pipe));
        EXPECT_EQ(Call({cmd, "@/s", mounted + name, "1", "2", "750"}), (Reply{-1, EINVAL})) << name;
        umount2(mounted.c_str(), MNT_DETACH);
        EXPECT_TRUE(fs::exists(kept)) << name;
        EXPECT_TRUE(CountSecrets(*tree) >= 2 && (cmd == CopyComb || !fs::exists(in + name + "/in" + name + "/in")))
            << name;
    }
}

/// The tree is deeper than the descriptor limit. Its paths must not fill the log.
TEST_F(RaceTest, FailuresBelowPathMaxAreLoggedAndDeeperOnesAreNot) {
    Start({{}, {"prlimit", "--nofile=64"}});
    const long top = std::ssize(tree->Dir("d"));
    ASSERT_TRUE(Shell("cd d; perl -e '$n = \"n\" x 200; mkdir($n, 0755), chdir $n for 1..100'"));
    EXPECT_EQ(Call({TryRemove, "@/d"}).errCode, ENOTEMPTY);
    EXPECT_EQ(std::ssize(Found("rmdir /")), 1 + (PATH_MAX - 1 - top) / 201);
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
