// The strict copy of a file or a tree: in the order of the directories, to the first failure. It logs and records
// nothing; copy.h does. It keeps no state between calls and may run on any thread.
//
// The two paths of a request are resolved as they stand. Below them nothing is followed: a level is one open directory
// on each side, and objects are names in them. A new file is created exclusively and private, and gets its mode when
// it is filled; its set-id bits only where it has the source's owner and group.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "directory_stream.h"
#include "file_data.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// OntoItself: the request names one object twice (EEXIST), or a destination inside its source (EINVAL). To try in
/// another way or to remove the source could only do harm. Nothing was touched, unless a bind mount or a rename in the
/// meantime hid it until the walk came upon its own destination.
enum class CopyOutcome { Done, Failed, OntoItself };

/// What a copy has to heed, and what it leaves for the next step.
struct CopyTask {
    bool isBelowRequest = false;   ///< the paths are those of children: a link at the destination is not followed
    bool isOwnerToChange = false;  ///< the caller gives the copy another owner: no file gets a set-id bit
    bool isModeToChange = false;   ///< the caller gives the copy another mode: a new file stays private
    /// What stands at the destination, open since the copy began: the file that was filled, or the directory into
    /// which it went. None where nothing was copied.
    UniqueFd destination = UniqueFd();
    /// The destination is to be acted on by its name all the same: that is a link to the directory, or the object is
    /// only open for the names in it.
    bool isByName = false;
    struct stat source {};       ///< of the request's source, once it is open; st_ino is 0 before
    struct stat directory {};    ///< of `destination`, where that is a directory; likewise
    std::size_t skipped = 0;     ///< entries left out because of their type
    FileData data = FileData();  ///< what it has learned of the file systems
};

/// Copies a file or a tree. Symbolic links are skipped. A file overwrites an existing one and goes into an existing
/// directory, a directory is merged into an existing one. The destination's parent must exist.
/// @param src  of unknown type for the path of a request, otherwise a regular file
/// @param err  set on anything but Done: EISDIR for a directory onto a file, EINVAL for a file onto a link and for
///             other types on either side, ENOTDIR for a link in place of a directory below the destination, or errno
[[nodiscard]] CopyOutcome CopyStrictly(const Entry& src, const Entry& dst, CopyTask& task, int& err);

/// Looks whether `dst` is the directory `src` (EEXIST), or lies or would lie inside it (EINVAL), by whatever names;
/// 0 if not.
[[nodiscard]] int FindOntoItself(const std::string& src, const std::string& dst);

/// Opens what stands at a task's destination as a directory, see OpenDirectory.
[[nodiscard]] UniqueFd OpenDestination(const Entry& dst, CopyTask& task);

}  // namespace TAVO::FileMigrateOrvane
