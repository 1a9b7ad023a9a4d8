#include "removal_queue.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "sync.h"

namespace TAVO::FileMigrateOrvane {
namespace {

// A batch is complete when it reaches any of these.
constexpr std::int64_t BATCH_BYTES = std::int64_t{64} << 20;
constexpr std::size_t BATCH_REMOVALS = 4096;
constexpr std::size_t BATCH_DIRECTORIES = 256;

/// On a thread of its own; if it cannot be started, on the thread that waits for the result.
constexpr std::launch EITHER_WAY = std::launch::async | std::launch::deferred;

}  // namespace

void RemovalQueue::NoteCopied(const UniqueFd& destination, dev_t device, std::int64_t copied) {
    gathering.bytes += copied;
    const auto isSame = [device](const Target& known) { return known.device == device; };
    if (std::none_of(gathering.targets.begin(), gathering.targets.end(), isSame)) {
        gathering.targets.push_back({device, UniqueFd(fcntl(destination.Get(), F_DUPFD_CLOEXEC, 0))});
    }
}

void RemovalQueue::AddFile(const QueuedHandle& directory, const char* name) {
    gathering.removals.push_back({directory, name});
}

void RemovalQueue::AddDirectory(const QueuedHandle& directory) {
    gathering.removals.push_back({directory, ""});
    ++gathering.directories;
}

int RemovalQueue::RunIfFull() {
    const bool isFull = gathering.bytes >= BATCH_BYTES || gathering.removals.size() >= BATCH_REMOVALS ||
                        gathering.directories >= BATCH_DIRECTORIES;
    if (isFull) {
        Advance(EITHER_WAY);
    }
    return flushError;
}

int RemovalQueue::Run() {
    const bool isOnly = !flushed.valid();  // without a batch to remove meanwhile, no thread is needed
    Advance(isOnly ? std::launch::deferred : EITHER_WAY);
    Advance(std::launch::deferred);
    return flushError;
}

void RemovalQueue::Advance(std::launch policy) {
    if (flushError != 0) {
        return;
    }
    flushError = flushed.valid() ? flushed.get() : 0;
    if (flushError != 0) {
        (void)FailFlush(top, target, flushError, report);
        return;
    }
    Batch written = std::exchange(flushing, std::exchange(gathering, {}));
    flushed = std::async(policy, [this] { return Flush(); });
    Remove(written);
}

int RemovalQueue::Flush() const {
    for (const Target& written : flushing.targets) {
        const int error = written.object ? SyncFileSystem(written.object, target) : EMFILE;
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

void RemovalQueue::Remove(Batch& batch) {
    for (Removal& removal : batch.removals) {
        const int error = removal.name.empty() ? RemoveDirectory(removal.directory) : RemoveFile(removal);
        removalError = error != 0 ? error : removalError;
        removal.directory.reset();
    }
    named.reset();
}

int RemovalQueue::RemoveFile(const Removal& removal) {
    const char* name = removal.name.c_str();
    if (removal.directory == nullptr) {
        std::string path = top;
        return DoUnlink({AT_FDCWD, name, DT_REG, path}, &guard, report);
    }
    QueuedDirectory& directory = *removal.directory;
    const ChildPath joined(PathOf(removal.directory), name);
    const int error = DoUnlink({directory.stream.Fd(), name, DT_REG, namedPath}, &guard, report);
    directory.hasFailed = directory.hasFailed || error != 0;
    return error;
}

int RemovalQueue::RemoveDirectory(const QueuedHandle& handle) {
    QueuedDirectory& directory = *handle;
    struct stat st {};
    const bool isKnown = fstat(directory.stream.Fd(), &st) == 0;
    const int dirFd = directory.parent == nullptr ? AT_FDCWD : directory.parent->stream.Fd();
    std::string& path = PathOf(handle);
    const int error = EmptyAndRemove(directory.stream, {dirFd, directory.name.c_str(), DT_DIR, path}, &guard);
    if (error != 0 && isKnown) {
        guard.failed[{st.st_dev, st.st_ino}] = error;
    }
    if (directory.parent != nullptr && (error != 0 || directory.hasFailed)) {
        directory.parent->hasFailed = true;
    }
    // One failure fails every directory above it. Those whose path exceeds PATH_MAX are not reported for it: no call
    // accepts such a path, and 20,000 levels would write a gigabyte.
    const bool isReported = !directory.hasFailed || path.length() < PATH_MAX;
    return isReported ? FinishRemove(error, path, report) : error;
}

/// Derives the path from the last one if that was of the same directory or of a child. In a deep tree, joining the
/// names for each path would take longer than the removals.
std::string& RemovalQueue::PathOf(const QueuedHandle& directory) {
    if (named != nullptr && named->parent == directory) {
        namedPath.resize(namedPath.length() - named->name.length() - 1);
    } else if (named != directory) {
        std::vector<const std::string*> names;
        for (const QueuedDirectory* level = directory.get(); level->parent != nullptr; level = level->parent.get()) {
            names.push_back(&level->name);
        }
        namedPath = top;
        for (auto name = names.rbegin(); name != names.rend(); ++name) {
            namedPath += '/';
            namedPath += **name;
        }
    }
    named = directory;
    return namedPath;
}

}  // namespace TAVO::FileMigrateOrvane
