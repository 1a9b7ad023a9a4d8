// The strict copy of a file or a tree: in the order of the directories, to the first failure. It logs and records
// nothing; copy.h does. It keeps no state between calls and may run on any thread.
//
// The two paths of a request are resolved as they stand. Below them nothing is followed: a level is one open directory
// on each side, and objects are names in them. A new file is created exclusively and private, and gets its mode when
// it is filled. It keeps its set-id bits only if it has the source's owner and group.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "directory_stream.h"
#include "file_data.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// A source and its place at the destination.
struct CopyPair {
    Entry src;
    Entry dst;
    bool isTop;  ///< these are the paths that the request names; below them nothing is followed
};

struct CopyOptions {
    Link topLink = Link::Follow;   ///< for a link at the top of the destination
    bool isOwnerToChange = false;  ///< the caller gives the copy another owner: no file gets a set-id bit
    bool isModeToChange = false;   ///< the caller gives the copy another mode: a new file stays private
    bool isKeptOpen = false;       ///< the caller goes on with the open copy and closes it
};

struct CopyJob {
    const CopyOptions options;
    FileData& data;  ///< one for all copies of a request: it learns about the file systems
};

/// What a copy hands out, also if it failed.
struct CopyResult {
    /// The object at the destination, open since the copy began: the file that was filled, or the directory. Empty if
    /// nothing was copied.
    UniqueFd destination = UniqueFd();
    /// The destination has to be named by its path even so: that is a link to the directory, or the descriptor only
    /// serves to act on the names in it.
    bool isByName = false;
    struct stat source {};     ///< of the top of the source, once it is open; st_ino is 0 before
    struct stat directory {};  ///< of `destination`, if that is a directory; st_ino is 0 otherwise
    std::size_t skipped = 0;   ///< entries left out because of their type
    /// The request names one object twice (EEXIST), or a destination inside its source (EINVAL). Trying in another way
    /// or removing the source could only do harm. Nothing was changed, unless a bind mount or a rename hid this until
    /// the walk reached its own destination.
    bool isOntoItself = false;
};

/// Copies a file or a tree. Symbolic links are skipped. A file overwrites an existing one and goes into an existing
/// directory, a directory is merged into an existing one. The destination's parent must exist.
/// @return 0, EISDIR for a directory onto a file, EINVAL for a file onto a link and for other types on either side,
///         ENOTDIR for a link in place of a directory below the destination, or another error number
[[nodiscard]] int CopyStrictly(const CopyPair& pair, CopyJob& job, CopyResult& result);

/// Checks whether `dst` is the directory `src` (EEXIST), or is or would be inside it (EINVAL), by whatever names.
/// @return 0 if neither
[[nodiscard]] int FindOntoItself(const std::string& src, const std::string& dst);

/// Opens the top of a copy's destination as a directory, see OpenDirectory. Stored in `result`.
/// @return 0 or an error number
[[nodiscard]] int OpenDestination(const Entry& dst, Link topLink, CopyResult& result);

/// Calls `visit` with the pair for each regular file and each directory that a source directory lists, while both
/// paths' texts are those of the child. Leaves out entries of other types and those whose type the file system does not
/// give. Ends as DirectoryStream::Next() does.
/// @param into  the destination's directory, see ChildOf()
/// @return how many entries were left out
template <class Visit>
std::size_t VisitFilesAndDirectories(DirectoryStream& from, const UniqueFd& into, const CopyPair& parents,
                                     Visit visit) {
    std::size_t skipped = 0;
    while (const dirent* child = from.Next()) {
        if (child->d_type != DT_REG && child->d_type != DT_DIR) {
            ++skipped;
            continue;
        }
        const ChildPath joinedSrc(parents.src.path, child->d_name);
        const ChildPath joinedDst(parents.dst.path, child->d_name);
        visit(CopyPair{from.Child(*child, parents.src.path), ChildOf(into, child->d_name, parents.dst.path),
                       /*isTop=*/false});
    }
    return skipped;
}

}  // namespace TAVO::FileMigrateOrvane
