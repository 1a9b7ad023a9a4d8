// A walk of a tree by several threads.
//
// A walk recurses: the frame of a directory stays until everything below it is done. When the tree turns out to be
// large, a directory's frame gives some of its entries to helper threads and waits for them before it ends. So a
// helper can rely on what the recursion relies on: the directory that holds an entry is open, and it is finished after
// its contents. Only the order of entries among each other differs from that of a single thread.
//
// Descriptors: a directory gives nothing away when many descriptors are open. A walk that goes deeper than that is
// alone there: the other threads of the same walk wait, each with few descriptors of its own. So a deep tree needs no
// more descriptors than on one thread.
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
/// Whether other threads may take part. A walk whose Visit() changes the walk itself stays alone.
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
    /// @return 0; or the number of the last failure; or, if the walk ends at a failure, that failure's
    int VisitChildren(DirectoryStream& stream, std::string& path, const Report& report);

    /// Ends a walk that ends at a failure. @return whether this is the first failure, which alone is reported
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

    unsigned seen = 0;     ///< entries, until the tree counts as large; written before the first helper joins
    bool isLarge = false;  ///< likewise
    int deepFd = 0;        ///< likewise; directories with such a descriptor or a higher one give nothing away

    std::mutex deep;  ///< held by the one thread that has gone deep
    std::atomic<pthread_t> deepThread{};
    std::atomic<bool> hasHelpers{false};  ///< since the first part was given away
    unsigned helperCount = 0;             ///< at work for this walk; guarded by the helpers' mutex
};

}  // namespace TAVO::FileMigrateOrvane
