// The threads that help with large walks: one team for the whole daemon. A helper starts when there is work for it and
// ends after a second without work.
#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include "tree_walk.h"

namespace TAVO::FileMigrateOrvane {

/// Some entries of one directory, to be visited by one thread. Whoever makes a part waits for it while the directory is
/// open.
class WalkPart {
public:
    /// @param holding  the directory. The part copies the texts of its paths
    WalkPart(SharedWalk& partOf, const WalkDirectory& holding, int kind)
        : walk(partOf),
          path(holding.path),
          copyPath(holding.copyPath != nullptr ? *holding.copyPath : ""),
          directory{holding.fd, path, holding.copy, &copyPath},
          recordKind(kind) {}
    WalkPart(const WalkPart&) = delete;
    WalkPart& operator=(const WalkPart&) = delete;

    void Add(const dirent& entry);
    /// Whether it is worth a thread: it holds a directory, or many other entries.
    [[nodiscard]] bool IsWorthwhile() const { return hasDirectory || count >= FEWEST_ENTRIES; }

    /// Visits the entries. @return 0 or an error number
    int Visit(const Report& report);
    /// Returns the result of a finished part, or rethrows what its visit threw.
    /// @param report  receives its failures
    [[nodiscard]] int Outcome(const Report& report) const;

private:
    friend class WalkHelpers;

    static constexpr unsigned FEWEST_ENTRIES = 64;

    void VisitAndKeep();

    SharedWalk& walk;
    std::string path;
    std::string copyPath;
    const WalkDirectory directory;  ///< refers to these two
    std::string names;              ///< for each entry its type, its name and a null byte
    unsigned count = 0;
    bool hasDirectory = false;
    const int recordKind;

    // The part's outcome, for the thread that waits for it.
    bool isDone = false;  ///< guarded by the helpers' mutex
    int result = 0;
    int err = 0;
    std::exception_ptr failure;  ///< out of memory
};

class WalkHelpers {
public:
    /// The daemon's helpers. They are never destroyed, because their threads may still run when the process exits.
    static WalkHelpers& Instance();

    /// Whether another part may be offered. May be out of date.
    [[nodiscard]] bool HaveRoom() const { return room.load(std::memory_order_relaxed) > 0; }

    /// Offers a part to the helpers.
    /// @return false if they have enough work, if none can be started, or if the walk already has its share
    [[nodiscard]] bool Offer(WalkPart& part);
    /// Waits until a part is done. If no helper has begun it, visits it on this thread.
    void Join(WalkPart& part);
    /// Whether Join() would not wait.
    [[nodiscard]] bool IsDone(const WalkPart& part);
    /// Call it at the end of a walk that has had helpers.
    void Leave();

private:
    WalkHelpers();

    static void* Run(void* self);
    /// @return false if it cannot be started
    bool StartThread();
    /// Whether the helpers have as many parts of the walk as they may have beside the other walks'.
    [[nodiscard]] bool HasItsShare(const SharedWalk& walk) const;
    void Release(const WalkPart& part);

    /// A helper has one part in work, and finds the next one waiting while the thread that offers them is busy.
    static constexpr int PARTS_EACH = 2;

    const int most;         ///< the largest number of helpers
    std::atomic<int> room;  ///< how many more parts may be offered

    std::mutex mutex;  // guards all that follows
    std::condition_variable offered;
    std::condition_variable done;
    std::vector<WalkPart*> waiting;  ///< offered, not begun
    int started = 0;                 ///< helpers
    int idle = 0;                    ///< those that wait for work
    int walks = 0;                   ///< walks that have had a helper and have not ended
};

}  // namespace TAVO::FileMigrateOrvane
