// The sources that a combined copy still has to remove. A source may be removed only after its copy was flushed to
// disk. Flushing each file would take sixty times as long, so removals are queued and carried out in order, one batch
// per flush. While one batch is flushed, the walk copies the next. So at most two batches take up space in both places.
//
// All threads of a walk may add to the queue. When a batch is complete, the thread that completed it starts the removal
// of the batch before it. The others go on copying as far as the removals make room for it. A thread without room
// removes files of that batch as well. The directories of a batch are removed by one thread, after all its files. For a
// flush, the queue starts one more thread, which does nothing else.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <span>
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

    // Guarded by the queue's mutex: where its last file was queued.
    std::size_t batch = 0;
    std::size_t group = 0;
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
    /// What takes up space in both places, and keeps directories open.
    struct Load {
        std::int64_t bytes = 0;
        std::size_t removals = 0;
        std::size_t directories = 0;

        void Add(const Load& other);
        void Subtract(const Load& other);
    };
    /// Files of one directory, to be removed by one thread.
    struct Group {
        QueuedHandle directory;
        std::string names;  ///< each with a null byte
        Load load;
    };
    struct Batch {
        std::vector<Group> groups;
        std::vector<QueuedHandle> directories;    ///< to be removed after all files
        std::vector<const FlushTarget*> targets;  ///< the file systems that were copied to
        Load load;
    };
    class PathText;

    [[nodiscard]] Group& GroupOf(const QueuedHandle& directory);
    /// Waits until the gathered batch has room, and meanwhile does what is needed for that.
    /// @param lock  of the mutex, as in the functions below; open during the work
    int MakeRoom(std::unique_lock<std::mutex>& lock, const Report& report);
    /// Whether what was gathered and what is not removed yet fill a batch.
    [[nodiscard]] bool IsFull() const;
    /// Lets the calling thread advance the batches; only one at a time may. Does nothing after a failed flush.
    void Advance(std::unique_lock<std::mutex>& lock, std::launch policy, const Report& report);
    /// Waits for the flush of the last batch, starts that of the new one and meanwhile removes the last one.
    /// @return 0 or the error number of the flush
    int StartNext(std::launch policy, const Report& report);
    /// Flushes the copies of the batch `flushing`. May run on the thread for flushes.
    [[nodiscard]] int Flush() const;
    void RemoveBatch(std::unique_lock<std::mutex>& lock, const Report& report);
    /// Removes some files of the batch `removing`. Several threads may do so at the same time.
    /// @return false if all are removed or being removed
    bool RemoveFiles(std::unique_lock<std::mutex>& lock, const Report& report);
    /// @return 0 or the last error
    int RemoveGroups(std::span<Group> groups, const Report& report);
    int RemoveFile(const QueuedHandle& directory, const char* name, PathText& text, const Report& report);
    int RemoveDirectory(const QueuedHandle& handle, PathText& text, const Report& report);
    /// Makes room in the batch that is gathered.
    void NoteRemoved(const Load& removed, int error);

    const std::string top;  ///< copied, because the walk extends its own text to the current entry
    const std::string target;
    SourceWatch watch;

    std::mutex mutex;  // guards all up to the next blank line
    std::condition_variable changed;
    std::vector<std::unique_ptr<const FlushTarget>> targets;  ///< all that were asked for
    Batch gathering;                                          ///< the batch that the walk is copying
    std::size_t batches = 1;                                  ///< its number
    Batch removing;                                           ///< was flushed; its load is what is left of it
    std::size_t begun = 0;                                    ///< how many of its groups were begun
    unsigned threadsRemoving = 0;  ///< threads in RemoveFiles(); meanwhile the groups stay where they are
    bool isAdvancing = false;      ///< a thread has the role of advancing the batches
    int flushError = 0;
    int removalError = 0;

    RemovalGuard guard{watch};  ///< only the thread that has this role changes it
    Batch flushing;             ///< only for that thread: the batch before the gathered one; it is being flushed
    std::future<int> flushed;   ///< last, because its destructor waits for the thread that uses the other members
};

}  // namespace TAVO::FileMigrateOrvane
