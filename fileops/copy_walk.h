// A walk of a copy's source, with the place at the destination for each entry. Several threads may take part, see
// tree_walk.h.
#pragma once

#include <string>

#include "copy_job.h"
#include "directory_stream.h"
#include "tree_walk.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// The destination of a source directory whose entries are copied. It stays until all of them are.
struct CopyLevel {
    const UniqueFd& into;      ///< see ChildOf()
    bool isSheltered = false;  ///< see CopyPair
};

class CopyWalk : public SharedWalk {
public:
    using SharedWalk::SharedWalk;

protected:
    /// Copies an entry and everything below it. Runs on several threads at once.
    /// @param level   that of the directory that holds the entry
    /// @param report  belongs to the calling thread
    /// @return 0 or an error number
    virtual int VisitPair(const CopyPair& pair, const CopyLevel& level, const Report& report) = 0;

    /// Visits all entries of a source directory, see VisitEntries(). @param pair  that directory
    int VisitChildren(DirectoryStream& from, const CopyPair& pair, const CopyLevel& level, const Report& report) {
        return VisitEntries(from, {from.Fd(), pair.src.path, &level, &pair.dst.path}, report);
    }

private:
    int VisitEntry(const Entry& entry, const WalkDirectory& directory, const Report& report) final {
        const ChildPath joined(*directory.copyPath, entry.name);
        const CopyLevel& level = *directory.copy;
        const Entry place = ChildOf(level.into, entry.name, *directory.copyPath);
        return VisitPair({entry, place, /*isTop=*/false, level.isSheltered}, level, report);
    }
};

}  // namespace TAVO::FileMigrateOrvane
