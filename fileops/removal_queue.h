// What a combined copy has copied and not removed yet. A source is removed only after its copy was written to its disk;
// writing each file would take sixty times as long, so removals gather and are carried out in their order, a batch at a
// time. The space that source and copy take together is bounded by the batch. One thread.
#pragma once

#include <cstdint>
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

    /// Notes that a file was copied to an open directory, or is this open file.
    void NoteCopied(const UniqueFd& destination, dev_t device, std::int64_t bytes);
    /// Queues a source file, copied or not. @param directory  null for the path of the request
    void AddFile(const QueuedHandle& directory, const char* name);
    /// Queues a source directory, with everything that is still in it by then.
    void AddDirectory(const QueuedHandle& directory);
    /// Carries out what is queued if that is a whole batch. @return as Run()
    int RunIfFull();
    /// Writes what was copied to its disk, then removes what is queued. If it cannot be written, everything stays.
    /// @return 0 or the error number of a failed flush
    int Run();

    /// The last error of a removal; 0 if none failed.
    [[nodiscard]] int RemovalError() const { return removalError; }
    [[nodiscard]] SourceWatch& Watch() { return watch; }

private:
    struct Removal {
        QueuedHandle directory;  ///< that holds the file, or that is removed itself
        std::string name;        ///< of the file; empty for a directory
    };
    struct Target {
        dev_t device;
        UniqueFd object;
    };

    int Flush();
    int RemoveFile(const Removal& removal);
    int RemoveDirectory(QueuedDirectory& directory);
    [[nodiscard]] std::string PathOf(const QueuedDirectory* directory) const;

    const std::string top;  ///< copies: the walk's own text is that of the current entry
    const std::string target;
    const Report& report;
    SourceWatch watch;
    RemovalGuard guard{watch};
    std::vector<Removal> removals;
    std::vector<Target> targets;  ///< one for each file system that was copied to since the last flush
    std::int64_t bytes = 0;
    std::size_t directories = 0;
    int removalError = 0;
};

}  // namespace TAVO::FileMigrateOrvane
