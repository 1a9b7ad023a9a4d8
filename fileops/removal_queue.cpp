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

/// A thread removes so many files before it looks whether there is room to go on copying.
constexpr std::size_t FILES_TOGETHER = 64;
/// After so many directories are removed, the threads that wait for room look again.
constexpr std::size_t DIRECTORIES_PER_WAKE = 16;

/// On a thread of its own; if it cannot be started, on the thread that waits for the result.
constexpr std::launch EITHER_WAY = std::launch::async | std::launch::deferred;

}  // namespace

/// The path of a directory, for messages. Derives it from the last one if that was of the same directory, of a child or
/// of the parent. In a deep tree, joining the names for each path would take longer than the removals.
class RemovalQueue::PathText {
public:
    explicit PathText(const std::string& pathOfTop) : top(pathOfTop) {}

    /// @return valid until the next call
    std::string& Of(const QueuedHandle& directory) {
        if (last != nullptr && last->parent == directory) {
            text.resize(text.length() - last->name.length() - 1);
        } else if (last != nullptr && directory->parent == last) {
            Append(directory->name);
        } else if (last != directory) {
            Join(*directory);
        }
        last = directory;
        return text;
    }

private:
    void Append(const std::string& name) {
        text += '/';
        text += name;
    }
    void Join(const QueuedDirectory& directory) {
        std::vector<const std::string*> names;
        for (const QueuedDirectory* level = &directory; level->parent != nullptr; level = level->parent.get()) {
            names.push_back(&level->name);
        }
        text = top;
        std::for_each(names.rbegin(), names.rend(), [this](const std::string* name) { Append(*name); });
    }

    const std::string& top;
    QueuedHandle last;
    std::string text;
};

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

void RemovalQueue::Load::Add(const Load& other) {
    bytes += other.bytes;
    removals += other.removals;
    directories += other.directories;
}

void RemovalQueue::Load::Subtract(const Load& other) {
    bytes -= other.bytes;
    removals -= other.removals;
    directories -= other.directories;
}

int RemovalQueue::AddFile(const QueuedHandle& directory, const char* name, const Written& written,
                          const Report& report) {
    const Load file{.bytes = written.bytes, .removals = 1};
    std::unique_lock lock(mutex);
    std::vector<const FlushTarget*>& known = gathering.targets;
    if (written.target != nullptr && std::find(known.begin(), known.end(), written.target) == known.end()) {
        known.push_back(written.target);
    }
    Group& group = GroupOf(directory);
    group.names.append(name, std::char_traits<char>::length(name) + 1);
    group.load.Add(file);
    gathering.load.Add(file);
    return MakeRoom(lock, report);
}

int RemovalQueue::AddDirectory(const QueuedHandle& directory, const Report& report) {
    std::unique_lock lock(mutex);
    gathering.directories.push_back(directory);
    gathering.load.Add({.removals = 1, .directories = 1});
    return MakeRoom(lock, report);
}

/// Several directories are copied at the same time, so their files arrive in turns.
RemovalQueue::Group& RemovalQueue::GroupOf(const QueuedHandle& directory) {
    std::vector<Group>& groups = gathering.groups;
    if (directory != nullptr && directory->batch == batches &&
        groups[directory->group].load.removals < FILES_TOGETHER) {
        return groups[directory->group];
    }
    if (directory != nullptr) {
        directory->batch = batches;
        directory->group = groups.size();
    }
    return groups.emplace_back(Group{directory, "", {}});
}

int RemovalQueue::MakeRoom(std::unique_lock<std::mutex>& lock, const Report& report) {
    while (flushError == 0 && IsFull()) {
        if (!isAdvancing) {
            Advance(lock, EITHER_WAY, report);
        } else if (!RemoveFiles(lock, report)) {
            changed.wait(lock);
        }
    }
    return flushError;
}

bool RemovalQueue::IsFull() const {
    const Load& load = gathering.load;
    const Load& left = removing.load;
    return load.bytes + left.bytes >= BATCH_BYTES || load.removals + left.removals >= BATCH_REMOVALS ||
           load.directories + left.directories >= BATCH_DIRECTORIES;
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
        flushError = flushError != 0 ? flushError : error;
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
    removing = std::exchange(flushing, std::exchange(gathering, {}));
    begun = 0;
    ++batches;
    flushed = std::async(policy, [this] { return Flush(); });
    changed.notify_all();  // the threads without room remove as well
    RemoveBatch(lock, report);
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

void RemovalQueue::RemoveBatch(std::unique_lock<std::mutex>& lock, const Report& report) {
    while (RemoveFiles(lock, report)) {
    }
    changed.wait(lock, [this] { return threadsRemoving == 0; });
    if (flushError != 0) {
        return;  // a thread has run out of memory
    }
    std::vector<QueuedHandle> directories = std::move(removing.directories);
    PathText text(top);
    for (QueuedHandle& directory : directories) {
        lock.unlock();
        const int error = RemoveDirectory(directory, text, report);
        directory.reset();
        lock.lock();
        NoteRemoved({.removals = 1, .directories = 1}, error);
        if (removing.load.directories % DIRECTORIES_PER_WAKE == 0) {
            changed.notify_all();
        }
    }
}

bool RemovalQueue::RemoveFiles(std::unique_lock<std::mutex>& lock, const Report& report) {
    Load load;
    const std::size_t first = begun;
    while (begun < removing.groups.size() && load.removals < FILES_TOGETHER) {
        load.Add(removing.groups[begun++].load);
    }
    if (begun == first) {
        return false;
    }
    const auto groups = std::span(removing.groups).subspan(first, begun - first);
    ++threadsRemoving;
    lock.unlock();
    const auto end = [&](int error) {
        lock.lock();
        --threadsRemoving;
        NoteRemoved(load, error);
        changed.notify_all();
    };
    try {
        end(RemoveGroups(groups, report));
    } catch (const std::bad_alloc&) {
        end(ENOMEM);
        flushError = ENOMEM;  // nothing more may be removed
        throw;
    }
    return true;
}

void RemovalQueue::NoteRemoved(const Load& removed, int error) {
    removing.load.Subtract(removed);
    removalError = error != 0 ? error : removalError;
}

int RemovalQueue::RemoveGroups(std::span<Group> groups, const Report& report) {
    PathText text(top);
    int lastError = 0;
    for (Group& group : groups) {
        const std::string& names = group.names;
        for (const char* name = names.c_str(); name < names.c_str() + names.length();) {
            const int error = RemoveFile(group.directory, name, text, report);
            lastError = error != 0 ? error : lastError;
            name += std::char_traits<char>::length(name) + 1;
        }
        group.directory.reset();
    }
    return lastError;
}

int RemovalQueue::RemoveFile(const QueuedHandle& directory, const char* name, PathText& text, const Report& report) {
    if (directory == nullptr) {
        std::string path = top;
        return DoUnlink({AT_FDCWD, name, DT_REG, path}, &guard, report);
    }
    std::string& path = text.Of(directory);
    const ChildPath joined(path, name);
    const int error = DoUnlink({directory->stream.Fd(), name, DT_REG, path}, &guard, report);
    if (error != 0) {
        directory->hasFailed = true;
    }
    return error;
}

int RemovalQueue::RemoveDirectory(const QueuedHandle& handle, PathText& text, const Report& report) {
    QueuedDirectory& directory = *handle;
    struct stat st {};
    const bool isKnown = fstat(directory.stream.Fd(), &st) == 0;
    const int dirFd = directory.parent == nullptr ? AT_FDCWD : directory.parent->stream.Fd();
    std::string& path = text.Of(handle);
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

}  // namespace TAVO::FileMigrateOrvane
