// The threads that help with large walks: one team for the whole daemon. A helper starts when there is work for it and
// ends after a second without any.
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
    WalkPart(TreeWalk& partOf, int fd, std::string directory, int kind)
        : walk(partOf), dirFd(fd), path(std::move(directory)), recordKind(kind) {}

    void Add(const dirent& entry);
    [[nodiscard]] bool IsEmpty() const { return names.empty(); }
    /// Whether it is worth a thread: it holds a directory, or many other entries.
    [[nodiscard]] bool IsWorthwhile() const { return hasDirectory || count >= FEWEST_ENTRIES; }

    /// Visits the entries. @return 0 or an error number
    int Visit(const Report& report);
    /// Hands out what came of a part that is done: throws what a helper has thrown.
    /// @param report  receives its failures  @return its result
    [[nodiscard]] int Outcome(const Report& report) const;

private:
    friend class WalkHelpers;

    static constexpr unsigned FEWEST_ENTRIES = 64;

    void VisitAndKeep();

    TreeWalk& walk;
    const int dirFd;
    std::string path;   ///< of the directory
    std::string names;  ///< for each entry its type, its name and a null byte
    unsigned count = 0;
    bool hasDirectory = false;
    const int recordKind;

    // What came of it, for the thread that waits.
    bool isDone = false;  ///< guarded by the helpers' mutex
    int result = 0;
    int err = 0;
    std::exception_ptr failure;  ///< out of memory
};

class WalkHelpers {
public:
    /// The daemon's helpers. They are never destroyed, since their threads end when they like.
    static WalkHelpers& Instance();

    /// Whether a part would find a helper. May be out of date.
    [[nodiscard]] bool HaveRoom() const { return room.load(std::memory_order_relaxed) > 0; }

    /// Gives a part to a helper. @return false if none is free, or if other walks are entitled to those that are
    [[nodiscard]] bool Offer(WalkPart& part);
    /// Waits until a part is done; does it here if no helper has begun it.
    void Join(WalkPart& part);
    /// Whether Join() would not wait.
    [[nodiscard]] bool IsDone(const WalkPart& part);
    /// The walk ends.
    void Leave();

private:
    WalkHelpers();

    static void* Run(void* self);
    /// @return false if it cannot be started
    bool StartThread();
    /// Whether the walk has as many helpers as it may have beside the other walks.
    [[nodiscard]] bool HasItsShare(const TreeWalk& walk) const;
    void Release(const WalkPart& part);

    const int most;  ///< helpers
    std::atomic<int> room;

    std::mutex mutex;  // guards all that follows
    std::condition_variable offered;
    std::condition_variable done;
    std::vector<WalkPart*> waiting;  ///< offered, not begun
    int started = 0;                 ///< helpers
    int idle = 0;                    ///< those that wait for work
    int walks = 0;                   ///< that have had a helper and have not ended
};

}  // namespace TAVO::FileMigrateOrvane
