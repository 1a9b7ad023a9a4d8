// Copying. Symbolic links in the source are skipped, neither copied nor followed. Nothing is undone: what was copied
// before a failure stays. What may stand where is told in copy_engine.h. For `err` and `recordKind` see path_helpers.h.
//
// The forms without a task are for those who want the result only: 0, or -1 for Failed and OntoItself alike.
#pragma once

#include <string>

#include "copy_engine.h"

namespace TAVO::FileMigrateOrvane {

/// Copies a file or a tree in one go, stopping at the first failure.
[[nodiscard]] int DoCopy(const std::string& src, const std::string& dst, int& err, int recordKind);
/// @param src  of unknown type for the path of a request, otherwise a regular file
[[nodiscard]] CopyOutcome DoCopy(const Entry& src, const Entry& dst, CopyTask& task, int& err, int recordKind);

/// DoCopy, and where that failed TryCopy. After a success of the second, `err` still holds the first one's error.
[[nodiscard]] int Copy(const std::string& src, const std::string& dst, int& err, int recordKind);
/// Copy for a child of the directories that a request names: a link at `dst` is not followed.
[[nodiscard]] int CopyChild(const std::string& src, const std::string& dst, int& err, int recordKind);
/// Copy for a caller who has more to do.
[[nodiscard]] CopyOutcome CopyRequest(const std::string& src, const std::string& dst, CopyTask& task, int& err,
                                      int recordKind);

/// Copies entry by entry, going on past what fails. The destination of a directory must exist; directories below
/// are created with mode 0700. Entries that are neither regular files nor directories are left out, as are those
/// whose type their file system does not tell.
/// @return 0, or -1 if any entry failed
[[nodiscard]] int TryCopy(const std::string& src, const std::string& dst, int& err, int recordKind);

/// Logs and records that a copy failed with an error number, and hands that out. @return -1
[[nodiscard]] int CopyFailed(const std::string& src, const std::string& dst, int error, int& err, int recordKind);

/// FindOntoItself for a request, logged and recorded as a copy that failed.
/// @return 0 if all is well
[[nodiscard]] int RefuseOntoItself(const std::string& src, const std::string& dst, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
