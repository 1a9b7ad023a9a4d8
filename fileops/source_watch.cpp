#include "source_watch.h"

namespace TAVO::FileMigrateOrvane {
namespace {

bool IsSameTime(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

// Inodes get their times from this clock.
SourceWatch::SourceWatch() {
    clock_gettime(CLOCK_REALTIME_COARSE, &start);
}

void SourceWatch::Note(const struct stat& st) {
    const Key key(st.st_dev, st.st_ino);
    if (S_ISDIR(st.st_mode)) {
        const std::lock_guard lock(mutex);
        directories.insert(key);
    } else if (IsRecent(st.st_ctim)) {
        const std::lock_guard lock(mutex);
        // Another thread may have unlinked a name of the object since `st` was read.
        Seen& seen = recent[key];
        seen = {st.st_ctim, st.st_mtim, st.st_size, seen.isUnlinked};
    }
}

void SourceWatch::NoteUnlink(const struct stat& st) {
    if (st.st_nlink > 1) {
        const std::lock_guard lock(mutex);
        recent[{st.st_dev, st.st_ino}] = {st.st_ctim, st.st_mtim, st.st_size, /*isUnlinked=*/true};
    }
}

bool SourceWatch::HasChanged(const struct stat& now) const {
    if (!IsRecent(now.st_ctim)) {
        return false;
    }
    const Key key(now.st_dev, now.st_ino);
    const std::lock_guard lock(mutex);
    if (S_ISDIR(now.st_mode) && directories.contains(key)) {
        return false;
    }
    const auto found = recent.find(key);
    if (found == recent.end()) {
        return true;
    }
    const Seen& seen = found->second;
    return now.st_size != seen.size ||
           !(seen.isUnlinked ? IsSameTime(now.st_mtim, seen.modified) : IsSameTime(now.st_ctim, seen.changed));
}

/// Some file systems store whole seconds, so a change appears to be made at the beginning of its second.
bool SourceWatch::IsRecent(const timespec& changed) const {
    return changed.tv_sec > start.tv_sec ||
           (changed.tv_sec == start.tv_sec && (changed.tv_nsec == 0 || changed.tv_nsec >= start.tv_nsec));
}

}  // namespace TAVO::FileMigrateOrvane
