// A walk of a tree by several threads.
//
// A walk recurses: the frame of a directory stays until everything below it is done. When the tree turns out to be
// large, a directory's frame gives some of its entries to helper threads and waits for them before it ends. So a
// helper can rely on what the recursion relies on: the directory that holds an entry is open, and it is finished after
// its contents. Only the order in which entries are visited differs from that of a single thread.
//
// Descriptors: a directory gives nothing away when many descriptors are open. Only one thread of a walk at a time
// goes deeper than that, and any other that gets there waits. Together the waiting threads hold at most about a
// thirty-second of the descriptors. So a walk of a deep tree runs out of descriptors only that much earlier than on
// one thread.
#pragma once

#include <pthread.h>

#include <atomic>
#include <mutex>
#include <string>

#include "directory_stream.h"
#include "failures.h"

namespace TAVO::FileMigrateOrvane {

/// Whether a walk goes on past an entry that fails, or ends there.
enum class OnFailure { Continue, Stop };
/// Whether other threads may take part. If Visit() changes the walk object itself without a lock or an atomic, the
/// walk must have one thread.
enum class Threads { One, Many };

/// A name in an open directory, with the type that the listing gave.
struct ListedName {
    int dirFd;
    const char* name;
    unsigned char type;
};

class TreeWalk {
public:
    TreeWalk(OnFailure walkPolicy, Threads walkThreads) : policy(walkPolicy), threads(walkThreads) {}
    virtual ~TreeWalk();
    TreeWalk(const TreeWalk&) = delete;
    TreeWalk& operator=(const TreeWalk&) = delete;

    /// Does the walk's work on an entry and on everything below it. Runs on several threads at once.
    /// @param report  belongs to the calling thread
    /// @return 0 or an error number
    virtual int Visit(const Entry& entry, const Report& report) = 0;

    /// Visits a child of an open directory. @param path  that of the directory
    /// @param result  receives the number of a failure
    /// @return whether the walk goes on
    bool VisitChild(const ListedName& child, std::string& path, const Report& report, int& result);

protected:
    /// Visits all entries of a directory. The caller looks at the stream's ReadError() afterwards.
    /// @param path  that of the directory
    /// @return 0 or the number of the last failure; for OnFailure::Stop, the number of the walk's first failure
    int VisitChildren(DirectoryStream& stream, std::string& path, const Report& report);

    /// Ends a walk at a failure. @return whether it was the first; only that one is reported
    bool EndAt(int error);
    /// The failure at which the walk ended; 0 before.
    [[nodiscard]] int EndedAt() const { return ending.load(std::memory_order_relaxed); }

private:
    friend class Deep;
    friend class WalkHelpers;

    bool MayGiveAway(int fd);

    const OnFailure policy;
    const Threads threads;
    std::atomic<int> ending{0};

    // Written before the first helper joins.
    unsigned seen = 0;  ///< entries, until the tree counts as large
    bool isLarge = false;
    int deepFd = 0;  ///< a directory whose descriptor is this or higher gives nothing away

    std::mutex deep;  ///< held by the one thread that has gone deep
    std::atomic<pthread_t> deepThread{};
    std::atomic<bool> hasHelpers{false};  ///< since the first part was given away
    unsigned helperCount = 0;             ///< helpers that work for this walk; guarded by the helpers' mutex
};

}  // namespace TAVO::FileMigrateOrvane
