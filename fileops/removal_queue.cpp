#include "removal_queue.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <utility>

#include "sync.h"

namespace TAVO::FileMigrateOrvane {
namespace {

// A batch is complete when it reaches any of these.
constexpr std::int64_t BATCH_BYTES = std::int64_t{64} << 20;
constexpr std::size_t BATCH_REMOVALS = 4096;
constexpr std::size_t BATCH_DIRECTORIES = 256;

/// After so many removals the threads that wait for room look again.
constexpr std::size_t REMOVALS_PER_WAKE = 64;

/// On a thread of its own; if it cannot be started, on the thread that waits for the result.
constexpr std::launch EITHER_WAY = std::launch::async | std::launch::deferred;

}  // namespace

const FlushTarget* RemovalQueue::TargetOf(const UniqueFd& opened, dev_t device) {
    const std::lock_guard lock(mutex);
    const auto isSame = [device](const auto& known) { return known->device == device; };
    const auto known = std::find_if(targets.begin(), targets.end(), isSame);
    if (known != targets.end()) {
        return known->get();
    }
    UniqueFd object(fcntl(opened.Get(), F_DUPFD_CLOEXEC, 0));
    return targets.emplace_back(std::make_unique<FlushTarget>(FlushTarget{device, std::move(object)})).get();
}

int RemovalQueue::AddFile(const QueuedHandle& directory, const char* name, const Written& written,
                          const Report& report) {
    return Add({directory, name, written.bytes}, written.target, report);
}

int RemovalQueue::AddDirectory(const QueuedHandle& directory, const Report& report) {
    return Add({directory, "", 0}, nullptr, report);
}

int RemovalQueue::Add(Removal removal, const FlushTarget* copiedTo, const Report& report) {
    std::unique_lock lock(mutex);
    Load& load = gathering.load;
    load.bytes += removal.bytes;
    load.directories += removal.name.empty() ? 1 : 0;
    ++load.removals;
    std::vector<const FlushTarget*>& written = gathering.targets;
    if (copiedTo != nullptr && std::find(written.begin(), written.end(), copiedTo) == written.end()) {
        written.push_back(copiedTo);
    }
    gathering.removals.push_back(std::move(removal));
    while (flushError == 0 && IsFull()) {
        if (isAdvancing) {
            changed.wait(lock);
        } else {
            Advance(lock, EITHER_WAY, report);
        }
    }
    return flushError;
}

bool RemovalQueue::IsFull() const {
    const Load& load = gathering.load;
    return load.bytes + removing.bytes >= BATCH_BYTES || load.removals + removing.removals >= BATCH_REMOVALS ||
           load.directories + removing.directories >= BATCH_DIRECTORIES;
}

int RemovalQueue::Run(const Report& report) {
    std::unique_lock lock(mutex);
    const bool isOnly = !flushed.valid();  // without a batch to remove meanwhile, no thread is needed
    Advance(lock, isOnly ? std::launch::deferred : EITHER_WAY, report);
    Advance(lock, std::launch::deferred, report);
    return flushError;
}

void RemovalQueue::Advance(std::unique_lock<std::mutex>& lock, std::launch policy, const Report& report) {
    if (flushError != 0) {
        return;
    }
    isAdvancing = true;
    lock.unlock();
    const auto end = [&](int error) {
        lock.lock();
        flushError = error;
        isAdvancing = false;
        changed.notify_all();
    };
    try {
        end(StartNext(policy, report));
    } catch (const std::bad_alloc&) {
        end(ENOMEM);  // the flush may not have begun, so nothing more may be removed
        throw;
    }
}

int RemovalQueue::StartNext(std::launch policy, const Report& report) {
    const int error = flushed.valid() ? flushed.get() : 0;
    if (error != 0) {
        return FailFlush(top, target, error, report);
    }
    std::unique_lock lock(mutex);
    Batch written = std::exchange(flushing, std::exchange(gathering, {}));
    removing = written.load;
    lock.unlock();
    flushed = std::async(policy, [this] { return Flush(); });
    Remove(written, report);
    return 0;
}

int RemovalQueue::Flush() const {
    for (const FlushTarget* written : flushing.targets) {
        const int error = written->object ? SyncFileSystem(written->object, target) : EMFILE;
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

void RemovalQueue::Remove(Batch& batch, const Report& report) {
    for (Removal& removal : batch.removals) {
        const int error =
            removal.name.empty() ? RemoveDirectory(removal.directory, report) : RemoveFile(removal, report);
        removalError = error != 0 ? error : removalError;
        removal.directory.reset();
        NoteRemoved(removal);
    }
    named.reset();
}

/// Makes room in the batch that is gathered.
void RemovalQueue::NoteRemoved(const Removal& removal) {
    const std::lock_guard lock(mutex);
    removing.bytes -= removal.bytes;
    removing.directories -= removal.name.empty() ? 1 : 0;
    if (--removing.removals % REMOVALS_PER_WAKE == 0) {
        changed.notify_all();
    }
}

int RemovalQueue::RemoveFile(const Removal& removal, const Report& report) {
    const char* name = removal.name.c_str();
    if (removal.directory == nullptr) {
        std::string path = top;
        return DoUnlink({AT_FDCWD, name, DT_REG, path}, &guard, report);
    }
    QueuedDirectory& directory = *removal.directory;
    const ChildPath joined(PathOf(removal.directory), name);
    const int error = DoUnlink({directory.stream.Fd(), name, DT_REG, namedPath}, &guard, report);
    if (error != 0) {
        directory.hasFailed = true;
    }
    return error;
}

int RemovalQueue::RemoveDirectory(const QueuedHandle& handle, const Report& report) {
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
