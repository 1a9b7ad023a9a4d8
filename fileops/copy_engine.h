// The strict copy of a file or a tree. It stops at the first failure, which copy.h reports. If it cannot set an owner,
// it reports that itself and continues. It keeps no state between calls and may run on any thread.
//
// The two paths of a request are resolved as usual. Below them no link is followed: each level has one open directory
// on each side, and entries are names in these. A new directory is private until everything in it is copied.
#pragma once

#include <cstddef>
#include <string>

#include "copy_job.h"

namespace TAVO::FileMigrateOrvane {

/// Copies a file or a tree. Symbolic links are skipped. A file overwrites an existing one and goes into an existing
/// directory, a directory is merged into an existing one. The destination's parent must exist.
/// @return 0, EISDIR for a directory onto a file, EINVAL for a file onto a link and for other types on either side,
///         ENOTDIR for a link in place of a directory below the destination, or another error number
[[nodiscard]] int CopyStrictly(const CopyPair& pair, CopyJob& job, const Report& report, CopyResult& result);

/// Opens the top of a copy's destination as a directory, see OpenDirectory. Stored in `result`.
/// @return 0 or an error number
[[nodiscard]] int OpenDestination(const Entry& dst, Link topLink, CopyResult& result);

/// Whether a walk that continues after failures copies an entry. A type that could not be looked up counts as a file:
/// copying it fails with the reason.
[[nodiscard]] inline bool IsToBeCopied(const Entry& src) {
    return src.type == DT_REG || src.type == DT_DIR || src.type == DT_UNKNOWN;
}

/// Notes an entry that such a walk skips or cannot enter.
void NoteLeftOut(const Entry& src, const CopyJob& job);

}  // namespace TAVO::FileMigrateOrvane
