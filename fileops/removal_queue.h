// The sources that a combined copy still has to remove. A source may be removed only after its copy was flushed to
// disk. Flushing each file would take sixty times as long, so removals are queued and carried out in order, one batch
// per flush. While one batch is flushed, the walk copies the next. So at most two batches take up space in both places.
//
// All threads of a walk may add to the queue. When a batch is complete, the thread that completed it removes the batch
// before it. The others go on copying as far as the removals make room for it, and then wait. For a flush, the queue
// starts one more thread, which does nothing else.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "directory_stream.h"
#include "failures.h"
#include "remove.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// A source directory, open until everything that is queued for it is removed.
struct QueuedDirectory {
    QueuedDirectory(std::shared_ptr<QueuedDirectory> holding, const Entry& entry)
        : parent(std::move(holding)), name(entry.name), stream(DirectoryStream::Open(entry)) {}

    const std::shared_ptr<QueuedDirectory> parent;  ///< null for the path of the request
    const std::string name;                         ///< in the parent, or that path
    DirectoryStream stream;
    std::atomic<bool> hasFailed{false};  ///< something in it was not copied or not removed
};
using QueuedHandle = std::shared_ptr<QueuedDirectory>;

/// A file system that receives copies.
struct FlushTarget {
    dev_t device;
    UniqueFd object;  ///< on it; empty if it could not be opened, and then the flush fails
};

/// What the copy of a file has written.
struct Written {
    const FlushTarget* target = nullptr;  ///< null if nothing was copied
    std::int64_t bytes = 0;
};

class RemovalQueue {
public:
    /// @param source, destination  the request's paths, for messages
    RemovalQueue(std::string source, std::string destination)
        : top(std::move(source)), target(std::move(destination)) {}

    /// A file system that the copy is about to write to. Asking before the first write ensures that the flush reports
    /// every error of a later write.
    /// @param opened  an open object on it
    [[nodiscard]] const FlushTarget* TargetOf(const UniqueFd& opened, dev_t device);

    // These three functions return 0 or the error number of a failed flush, now or earlier. After a failed flush no
    // source is removed. `report` belongs to the calling thread and receives the failures that it meets.

    /// Queues a source file whose copy is complete or has failed. If that completes a batch, starts its flush and
    /// removes the batch before it.
    /// @param directory  null for the path of the request
    int AddFile(const QueuedHandle& directory, const char* name, const Written& written, const Report& report);
    /// The same for a source directory, after everything in it was queued. What it still holds when its turn comes is
    /// removed with it.
    int AddDirectory(const QueuedHandle& directory, const Report& report);
    /// Flushes all copies to disk, then removes all queued sources. Only one thread may still use the queue.
    int Run(const Report& report);

    /// The last error of a removal; 0 if none failed.
    [[nodiscard]] int RemovalError() const { return removalError; }
    [[nodiscard]] SourceWatch& Watch() { return watch; }

private:
    struct Removal {
        QueuedHandle directory;  ///< holds the file, or is to be removed itself
        std::string name;        ///< the file's name; empty if the directory itself is to be removed
        std::int64_t bytes;      ///< of the file
    };
    /// What takes up space in both places, and keeps directories open.
    struct Load {
        std::int64_t bytes = 0;
        std::size_t removals = 0;
        std::size_t directories = 0;
    };
    struct Batch {
        std::vector<Removal> removals;
        std::vector<const FlushTarget*> targets;  ///< the file systems that were copied to
        Load load;
    };

    int Add(Removal removal, const FlushTarget* copiedTo, const Report& report);
    /// Whether what was gathered and what is not removed yet fill a batch.
    [[nodiscard]] bool IsFull() const;
    /// Lets the calling thread advance the batches; only one at a time may. Does nothing after a failed flush.
    /// @param lock  of the mutex; open during the work
    void Advance(std::unique_lock<std::mutex>& lock, std::launch policy, const Report& report);
    /// Waits for the flush of the last batch, starts that of the new one and meanwhile removes the last one.
    /// @return 0 or the error number of the flush
    int StartNext(std::launch policy, const Report& report);
    /// Flushes the copies of the batch `flushing`. May run on the thread for flushes.
    [[nodiscard]] int Flush() const;
    void Remove(Batch& batch, const Report& report);
    void NoteRemoved(const Removal& removal);
    int RemoveFile(const Removal& removal, const Report& report);
    int RemoveDirectory(const QueuedHandle& handle, const Report& report);
    /// @return the directory's path for messages, valid until the next call
    std::string& PathOf(const QueuedHandle& directory);

    const std::string top;  ///< copied, because the walk extends its own text to the current entry
    const std::string target;
    SourceWatch watch;

    std::mutex mutex;  // guards all up to the next blank line
    std::condition_variable changed;
    std::vector<std::unique_ptr<const FlushTarget>> targets;  ///< all that were asked for
    Batch gathering;                                          ///< the batch that the walk is copying
    Load removing;                                            ///< what is left of the batch that is being removed
    bool isAdvancing = false;                                 ///< a thread has the role of advancing the batches
    int flushError = 0;

    // Only for the thread that has this role.
    RemovalGuard guard{watch};
    Batch flushing;         ///< the batch before the one that is gathered; it is being flushed
    QueuedHandle named;     ///< the directory that PathOf() was last called with
    std::string namedPath;  ///< its path
    int removalError = 0;
    std::future<int> flushed;  ///< last, because its destructor waits for the thread that uses the other members
};

}  // namespace TAVO::FileMigrateOrvane
