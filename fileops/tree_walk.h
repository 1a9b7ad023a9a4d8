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
/// Whether other threads may take part. If a visit changes the walk object itself without a lock or an atomic, the
/// walk must have one thread.
enum class Threads { One, Many };

/// The destination of a copied directory, see copy_walk.h.
struct CopyLevel;

/// An open directory whose entries are visited, as one thread sees it.
struct WalkDirectory {
    int fd;
    std::string& path;                ///< belongs to the thread
    const CopyLevel* copy = nullptr;  ///< only in a copy; belongs to the frame that opened the directory
    std::string* copyPath = nullptr;  ///< only in a copy: the path of its destination; belongs to the thread
};

/// A name in a directory, with the type that the listing gave.
struct ListedName {
    const char* text;
    unsigned char type;
};

/// What all walks have in common.
class SharedWalk {
public:
    SharedWalk(OnFailure walkPolicy, Threads walkThreads) : policy(walkPolicy), threads(walkThreads) {}
    virtual ~SharedWalk();
    SharedWalk(const SharedWalk&) = delete;
    SharedWalk& operator=(const SharedWalk&) = delete;

    /// Visits a child of an open directory.
    /// @param result  receives the number of a failure
    /// @return whether the walk goes on
    bool VisitChild(const WalkDirectory& directory, ListedName name, const Report& report, int& result);

    /// Ends the walk on all its threads, because one of them has run out of memory: each throws at its next entry.
    void EndWithoutMemory() { isOutOfMemory = true; }

protected:
    /// Visits all entries of a directory. The caller looks at the stream's ReadError() afterwards.
    /// @return 0 or the number of the last failure; for OnFailure::Stop, the number of the walk's first failure
    int VisitEntries(DirectoryStream& stream, const WalkDirectory& directory, const Report& report);

    /// Ends a walk at a failure. @return whether it was the first; only that one is reported
    bool EndAt(int error);
    /// The failure at which the walk ended; 0 before.
    [[nodiscard]] int EndedAt() const { return ending.load(std::memory_order_relaxed); }

private:
    friend class Deep;
    friend class WalkHelpers;

    /// Does the walk's work on an entry and on everything below it. Runs on several threads at once.
    /// @param report  belongs to the calling thread
    /// @return 0 or an error number
    virtual int VisitEntry(const Entry& entry, const WalkDirectory& directory, const Report& report) = 0;

    bool MayGiveAway(int fd);

    const OnFailure policy;
    const Threads threads;
    std::atomic<int> ending{0};
    std::atomic<bool> isOutOfMemory{false};

    // Written before the first helper joins.
    unsigned seen = 0;  ///< entries, until the tree counts as large
    bool isLarge = false;
    int deepFd = 0;  ///< a directory whose descriptor is this or higher gives nothing away

    std::mutex deep;  ///< held by the one thread that has gone deep
    std::atomic<pthread_t> deepThread{};
    std::atomic<bool> hasHelpers{false};  ///< since the first part was given away
    unsigned offeredParts = 0;            ///< that are not done; guarded by the helpers' mutex
};

/// A walk that needs to know nothing about a directory but that it is open.
class TreeWalk : public SharedWalk {
public:
    using SharedWalk::SharedWalk;

    /// Does the walk's work on an entry and on everything below it. Runs on several threads at once.
    /// @param report  belongs to the calling thread
    /// @return 0 or an error number
    virtual int Visit(const Entry& entry, const Report& report) = 0;

protected:
    /// Visits all entries of a directory, see VisitEntries(). @param path  that of the directory
    int VisitChildren(DirectoryStream& stream, std::string& path, const Report& report) {
        return VisitEntries(stream, {stream.Fd(), path}, report);
    }

private:
    int VisitEntry(const Entry& entry, const WalkDirectory& /*directory*/, const Report& report) final {
        return Visit(entry, report);
    }
};

}  // namespace TAVO::FileMigrateOrvane
