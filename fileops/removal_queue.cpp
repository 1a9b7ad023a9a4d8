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

}  // namespace

void RemovalQueue::NoteCopied(const UniqueFd& destination, dev_t device, std::int64_t copied) {
    bytes += copied;
    const auto isSame = [device](const Target& known) { return known.device == device; };
    if (std::none_of(targets.begin(), targets.end(), isSame)) {
        targets.push_back({device, UniqueFd(fcntl(destination.Get(), F_DUPFD_CLOEXEC, 0))});
    }
}

void RemovalQueue::AddFile(const QueuedHandle& directory, const char* name) {
    removals.push_back({directory, name});
}

void RemovalQueue::AddDirectory(const QueuedHandle& directory) {
    removals.push_back({directory, ""});
    ++directories;
}

int RemovalQueue::RunIfFull() {
    const bool isFull = bytes >= BATCH_BYTES || removals.size() >= BATCH_REMOVALS || directories >= BATCH_DIRECTORIES;
    return isFull ? Run() : 0;
}

int RemovalQueue::Flush() {
    for (const Target& written : targets) {
        const int error = written.object ? SyncFileSystem(written.object, target) : EMFILE;
        if (error != 0) {
            return FailFlush(top, target, error, report);
        }
    }
    return 0;
}

int RemovalQueue::Run() {
    const int flushError = Flush();
    for (Removal& removal : removals) {
        if (flushError != 0) {
            break;
        }
        const int error = removal.name.empty() ? RemoveDirectory(*removal.directory) : RemoveFile(removal);
        removalError = error != 0 ? error : removalError;
        removal.directory.reset();
    }
    removals.clear();
    targets.clear();
    bytes = 0;
    directories = 0;
    return flushError;
}

int RemovalQueue::RemoveFile(const Removal& removal) {
    QueuedDirectory* const directory = removal.directory.get();
    std::string path = directory == nullptr ? top : PathOf(directory) + "/" + removal.name;
    const int dirFd = directory == nullptr ? AT_FDCWD : directory->stream.Fd();
    const int error = DoUnlink({dirFd, removal.name.c_str(), DT_REG, path}, &guard, report);
    if (error != 0 && directory != nullptr) {
        directory->hasFailed = true;
    }
    return error;
}

int RemovalQueue::RemoveDirectory(QueuedDirectory& directory) {
    struct stat st {};
    const bool isKnown = fstat(directory.stream.Fd(), &st) == 0;
    const int dirFd = directory.parent == nullptr ? AT_FDCWD : directory.parent->stream.Fd();
    std::string path = PathOf(&directory);
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

std::string RemovalQueue::PathOf(const QueuedDirectory* directory) const {
    std::vector<const std::string*> names;
    for (; directory->parent != nullptr; directory = directory->parent.get()) {
        names.push_back(&directory->name);
    }
    std::string path = top;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        path += '/';
        path += **name;
    }
    return path;
}

}  // namespace TAVO::FileMigrateOrvane
