// Detects changes to a source that was already copied. The owner of a tree may go on writing while a move or a combined
// copy runs. What is written to a file after it was copied must not be removed.
//
// Every change updates an object's ctime. If that is older than the copy, the object has not changed, so nothing about
// it has to be remembered. Only two kinds are remembered: objects that had changed just before they were copied, and
// directories that were read. Belongs to one request, whose threads may use it at the same time.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <map>
#include <mutex>
#include <set>
#include <utility>

namespace TAVO::FileMigrateOrvane {

class SourceWatch {
public:
    SourceWatch();

    /// Notes the state of an object when its copy begins, or when the copy skips it.
    void Note(const struct stat& st);
    /// Notes that an unchanged object is about to lose one of several names, which changes its ctime.
    void NoteUnlink(const struct stat& st);

    /// Whether an object has changed since it was noted. An object that was added later counts as changed. A directory
    /// that was noted never does, because its entries are checked one by one.
    [[nodiscard]] bool HasChanged(const struct stat& now) const;

private:
    using Key = std::pair<dev_t, ino_t>;
    struct Seen {
        timespec changed{};   ///< st_ctim
        timespec modified{};  ///< st_mtim
        off_t size = 0;
        bool isUnlinked = false;  ///< it lost a name, so compare only `modified` and `size`
    };
    [[nodiscard]] bool IsRecent(const timespec& changed) const;

    timespec start{};
    mutable std::mutex mutex;  // guards the rest
    std::map<Key, Seen> recent;
    std::set<Key> directories;
};

}  // namespace TAVO::FileMigrateOrvane
