// The types that the parts of a copy share: the two sides, the options, what is remembered between copies, and the
// result. Several threads may work on one copy. What they change is atomic or has a lock; everything else is set before
// a second thread takes part.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstddef>

#include "access_acl.h"
#include "directory_stream.h"
#include "failures.h"
#include "file_data.h"
#include "process_umask.h"
#include "source_watch.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// A source and its place at the destination.
struct CopyPair {
    Entry src;
    Entry dst;
    bool isTop = false;  ///< these are the paths that the request names; below them nothing is followed
    /// This copy made the directory that holds `dst`, and nobody else can reach it yet.
    /// What is created in it gets the daemon's group.
    bool isSheltered = false;
};

/// What a new object gets once it is filled. Until then it is private.
enum class Finish {
    Mode,          ///< the mode of its source; set-id bits only if it has the source's owner and group
    OwnerAndMode,  ///< the owner of the request's source, then the mode of its own source without set-id bits
    Nothing,       ///< the caller gives it another owner and mode
};

struct CopyOptions {
    Link topLink = Link::Follow;  ///< for a link at the top of the destination
    Finish finish = Finish::Mode;
    bool isKeptOpen = false;  ///< the caller uses the open copy and closes it
};

/// What is learned in one copy and used in the next copies of the same request.
class Learned {
public:
    FileData data;
    AccessAcl acl;

    /// The process's file-creation mask.
    [[nodiscard]] mode_t Umask() {
        if (umask == NOT_READ) {
            umask = ReadProcessUmask();
        }
        return umask;
    }

private:
    static constexpr mode_t NOT_READ = ~mode_t{0};
    std::atomic<mode_t> umask{NOT_READ};
};

struct CopyJob {
    const CopyOptions options;
    Learned& learned;              ///< one for all copies of a request
    SourceWatch* watch = nullptr;  ///< notes what is copied or left out, if the source is removed afterwards
    OwnerIds owner{};  ///< for Finish::OwnerAndMode, known once the source is open; for Finish::Nothing, the caller's
    mode_t mode = 0;   ///< for Finish::Nothing, the one that the caller gives
    std::atomic<int> ownerError{0};  ///< of an object that did not get its owner; it was reported, and the copy went on
};

/// What a copy returns, even if it fails.
struct CopyResult {
    /// The object at the destination, open since the copy began: the file that was filled, or the directory. Empty if
    /// nothing was copied.
    UniqueFd destination = UniqueFd();
    /// The destination still has to be named by its path, because the path is a link to the directory, or because the
    /// descriptor was opened with O_PATH and serves only to act on names in it.
    bool isByName = false;
    bool isOwned = false;                 ///< the destination and everything in it have the job's owner
    struct stat source {};                ///< of the top of the source, once it is open; st_ino is 0 before
    struct stat directory {};             ///< of `destination`, if that is a directory; st_ino is 0 otherwise
    off_t bytes = 0;                      ///< of the source, if that is a file
    std::atomic<std::size_t> skipped{0};  ///< entries skipped because of their type
    /// The request names one object twice (EEXIST), or a destination inside its source (EINVAL). A second attempt or a
    /// removal of the source could only do harm. Nothing was changed, unless a bind mount or a rename hid this until
    /// the walk reached its own destination.
    std::atomic<bool> isOntoItself{false};
    /// Somebody put another object in the place of a directory that the copy had just created (EEXIST). Trying in
    /// another way would copy into that object.
    std::atomic<bool> isExchanged{false};
};

/// Notes an object of the source when its copy begins or when it is skipped.
inline void NoteSource(const struct stat& source, const CopyJob& job) {
    if (job.watch != nullptr) {
        job.watch->Note(source);
    }
}

/// Remembers the top of the source, once it is open.
inline void NoteTop(const struct stat& source, CopyJob& job, CopyResult& result) {
    result.source = source;
    if (job.options.finish == Finish::OwnerAndMode) {
        job.owner = {source.st_uid, source.st_gid};
    }
}

}  // namespace TAVO::FileMigrateOrvane
