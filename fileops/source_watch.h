// Whether an object of a source has changed since it was copied. An owner may go on writing while a move or a combined
// copy runs; what he wrote after his file was copied must not be removed.
//
// Every change shows in an object's ctime, so one that is older than the copy tells that nothing has changed, and needs
// no memory. Only objects that had changed just before they were copied are remembered, and directories that were read.
// Belongs to one request, so to one thread.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <map>
#include <set>
#include <utility>

namespace TAVO::FileMigrateOrvane {

class SourceWatch {
public:
    SourceWatch();

    /// Notes an object, as it is when its copy begins or when it is left out.
    void Note(const struct stat& st);
    /// Notes that one of several names of an unchanged object is removed, which changes its ctime.
    void NoteUnlink(const struct stat& st);

    /// Whether an object has changed since it was noted. One that was added since counts as changed. A directory that
    /// was noted does not count: its entries are looked at one by one.
    [[nodiscard]] bool HasChanged(const struct stat& now) const;

private:
    using Key = std::pair<dev_t, ino_t>;
    struct Seen {
        timespec changed;   ///< st_ctim
        timespec modified;  ///< st_mtim
        off_t size;
        bool isUnlinked;  ///< by one of its names: only `modified` and `size` count
    };
    [[nodiscard]] bool IsRecent(const timespec& changed) const;

    timespec start{};
    std::map<Key, Seen> recent;
    std::set<Key> directories;
};

}  // namespace TAVO::FileMigrateOrvane
