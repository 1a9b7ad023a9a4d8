// Walks that several threads share. The walk notes what it visits, so each promise of tree_walk.h can be checked.
#include "tree_walk.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <thread>
#include <vector>

#include "record_file.h"
#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

class NotingWalk final : public TreeWalk {
public:
    /// What a test does at each entry, with its path. @return 0 or an error number
    using Act = std::function<int(const std::string&)>;
    explicit NotingWalk(Act whatToDo, OnFailure onFailure = OnFailure::Continue, Threads mayHelp = Threads::Many)
        : TreeWalk(onFailure, mayHelp), act(std::move(whatToDo)) {}

    int Visit(const Entry& entry, const Report& report) override {
        const int error = act(entry.path);
        report.err = error != 0 ? error : report.err;
        if (error == 0 && TypeOf(entry) == DT_DIR) {
            // A moment, so that the helpers have the time to take part.
            std::this_thread::sleep_for(std::chrono::microseconds{200});
            DirectoryStream stream = DirectoryStream::Open(entry);
            const int result = stream ? VisitChildren(stream, entry.path, report) : errno;
            Note(entry.path);
            return result;
        }
        Note(entry.path);
        return error;
    }

    int Run(const std::string& top) {
        std::string text = top;
        return Visit(TopEntry(top, text), {err, RECORD_KIND_NONE});
    }

    std::map<std::string, int> visits;
    std::set<std::thread::id> seenThreads;
    bool isOrdered = true;  ///< each directory was finished after everything in it
    int err = 0;

private:
    void Note(const std::string& path) {
        const std::lock_guard lock(mutex);
        ++visits[path];
        seenThreads.insert(std::this_thread::get_id());
        isOrdered = isOrdered && !visits.contains(path.substr(0, path.rfind('/')));
    }

    const Act act;
    std::mutex mutex;
};

/// 50 directories with 20 files each, and 1,500 files in one more.
std::size_t GrowLarge(const ScratchTree& tree) {
    EXPECT_TRUE(
        tree.Shell("mkdir t; cd t; mkdir flat $(seq -f d%g 0 49); touch $(seq -f flat/f%g 500); "
                   "for n in $(seq 1000); do : >d$((n % 50))/f$n; done"));
    return 1 + 51 + 1500;
}

TEST(TreeWalkTest, VisitsEachEntryOnceAndADirectoryAfterItsContents) {
    const ScratchTree tree;
    const std::size_t entries = GrowLarge(tree);
    for (const Threads threads : {Threads::Many, Threads::One}) {
        NotingWalk walk([](const auto&) { return 0; }, OnFailure::Continue, threads);
        EXPECT_EQ(walk.Run(tree.Path("t")), 0);
        EXPECT_EQ(walk.visits.size(), entries);
        EXPECT_TRUE(std::ranges::all_of(walk.visits, [](const auto& visit) { return visit.second == 1; }));
        EXPECT_TRUE(walk.isOrdered);
        EXPECT_EQ(walk.seenThreads.size() > 1, threads == Threads::Many) << walk.seenThreads.size();
    }
}

TEST(TreeWalkTest, GoesOnPastFailuresOrEndsAtTheFirst) {
    const ScratchTree tree;
    const std::size_t entries = GrowLarge(tree);
    const auto fail = [](const std::string& path) { return path.ends_with("7") ? EIO : 0; };
    NotingWalk through(fail);
    EXPECT_EQ(through.Run(tree.Path("t")), EIO);
    EXPECT_EQ(through.err, EIO);
    // What fails is noted; what lies below the five directories d7, d17, ... is not visited.
    EXPECT_EQ(through.visits.size(), entries - 5 * 20);
    NotingWalk ending(fail, OnFailure::Stop);
    EXPECT_EQ(ending.Run(tree.Path("t")), EIO);
    EXPECT_LT(ending.visits.size(), entries - 5 * 20);
}

TEST(TreeWalkTest, WantOfMemoryReachesTheCaller) {
    const ScratchTree tree;
    GrowLarge(tree);
    const auto fail = [](const std::string& path) { return path.ends_with("99") ? throw std::bad_alloc() : 0; };
    EXPECT_THROW((void)NotingWalk(fail).Run(tree.Path("t")), std::bad_alloc);
}

TEST(TreeWalkTest, DeepTreesNeedNoMoreDescriptorsThanOnOneThread) {
    const ScratchTree tree;
    GrowLarge(tree);
    for (std::string chain : {"t/deep1", "t/d1/deep2"}) {
        for (int level = 0; level < 940; ++level) {
            chain += "/n";
        }
        fs::create_directories(tree.Path(chain));
    }
    const rlimit limit{1024, 4096};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    NotingWalk walk([](const auto&) { return 0; });
    EXPECT_EQ(walk.Run(tree.Path("t")), 0);
    EXPECT_EQ(std::ranges::count_if(walk.visits, [](const auto& visit) { return visit.first.ends_with("/n"); }),
              2 * 940);
}

TEST(TreeWalkTest, FourWalksShareTheHelpersWhichThenEnd) {
    const ScratchTree tree;
    const std::size_t entries = GrowLarge(tree);
    const auto threads = [] { return std::distance(fs::directory_iterator("/proc/self/task"), {}); };
    std::jthread([] {}).join();  // with the first thread, a sanitizer may start one of its own
    const auto before = threads();
    std::vector<std::jthread> workers;
    std::vector<std::size_t> visited(4);
    for (std::size_t& count : visited) {
        workers.emplace_back([&] {
            NotingWalk walk([](const auto&) { return 0; });
            count = walk.Run(tree.Path("t")) == 0 ? walk.visits.size() : 0;
        });
    }
    workers.clear();
    EXPECT_EQ(visited, std::vector(4, entries));
    for (int tenths = 0; tenths < 100 && threads() > before; ++tenths) {
        std::this_thread::sleep_for(std::chrono::milliseconds{100});
    }
    EXPECT_LE(threads(), before) << "helpers end when there is nothing to do";
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
