// The sources that a combined copy still has to remove. A source may be removed only after its copy was flushed to
// disk. Flushing each file would take sixty times as long, so removals are queued and carried out in order, one batch
// per flush. While one batch is flushed, the walk copies the next. So at most two batches take up space in both places.
//
// Used by one thread. For a flush it starts a second thread, which does nothing else.
#pragma once

#include <cstdint>
#include <future>
#include <memory>
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
    std::shared_ptr<QueuedDirectory> parent;  ///< null for the path of the request
    std::string name;                         ///< in the parent, or that path
    DirectoryStream stream;
    bool hasFailed = false;  ///< something in it was not copied or not removed
};
using QueuedHandle = std::shared_ptr<QueuedDirectory>;

class RemovalQueue {
public:
    /// @param source, destination  the request's paths, for messages
    RemovalQueue(std::string source, std::string destination, const Report& where)
        : top(std::move(source)), target(std::move(destination)), report(where) {}

    /// Notes that a file was copied. @param destination  the open directory that received it, or the open copy itself
    void NoteCopied(const UniqueFd& destination, dev_t device, std::int64_t bytes);
    /// Queues a source file, copied or not. @param directory  null for the path of the request
    void AddFile(const QueuedHandle& directory, const char* name);
    /// Queues a source directory. Everything that it still holds when its turn comes is removed with it.
    void AddDirectory(const QueuedHandle& directory);
    /// If the queue holds a whole batch, starts its flush and removes the batch before it. @return as Run()
    int RunIfFull();
    /// Flushes the copies to disk, then removes the queued sources. After a failed flush no source is removed, and
    /// nothing more may be queued.
    /// @return 0 or the error number of a failed flush, now or earlier
    int Run();

    /// The last error of a removal; 0 if none failed.
    [[nodiscard]] int RemovalError() const { return removalError; }
    [[nodiscard]] SourceWatch& Watch() { return watch; }

private:
    struct Removal {
        QueuedHandle directory;  ///< holds the file, or is to be removed itself
        std::string name;        ///< the file's name; empty if the directory itself is to be removed
    };
    struct Target {
        dev_t device;
        UniqueFd object;
    };

    struct Batch {
        std::vector<Removal> removals;
        std::vector<Target> targets;  ///< one for each file system that was copied to
        std::int64_t bytes = 0;
        std::size_t directories = 0;
    };

    /// Waits for the flush of the last batch, starts that of the new one and meanwhile removes the last one. Does
    /// nothing after a failed flush.
    void Advance(std::launch policy);
    /// Flushes the copies of the batch `flushing`. May run on the second thread.
    [[nodiscard]] int Flush() const;
    void Remove(Batch& batch);
    int RemoveFile(const Removal& removal);
    int RemoveDirectory(const QueuedHandle& handle);
    /// @return the directory's path for messages, valid until the next call
    std::string& PathOf(const QueuedHandle& directory);

    const std::string top;  ///< copied, because the walk extends its own text to the current entry
    const std::string target;
    const Report& report;
    SourceWatch watch;
    RemovalGuard guard{watch};
    Batch gathering;        ///< the batch that the walk is copying
    Batch flushing;         ///< the batch before it, which is being flushed
    QueuedHandle named;     ///< the directory that PathOf() was last called with
    std::string namedPath;  ///< its path
    int flushError = 0;
    int removalError = 0;
    std::future<int> flushed;  ///< last, because its destructor waits for the thread that uses the other members
};

}  // namespace TAVO::FileMigrateOrvane
