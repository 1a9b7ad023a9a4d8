// The command handlers: each takes a request's fields, calls the file operations and fills the reply context. They
// return 0 on success and -1 on failure but where it is said otherwise. Failures of an operation are logged and
// recorded there; a handler adds what it finds wrong in the request itself.
#pragma once

#include <cstdint>

#include "command.h"

namespace TAVO::FileMigrateOrvane {

// Queries. They read `src` only.

/// 1 exists, 0 does not, -1 cannot be told.
std::int32_t ProcessIsExistCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// 1 directory, 0 anything else, -1 cannot be told.
std::int32_t ProcessIsDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Puts "name:1" for each directory and "name:0" for each other entry into the reply.
std::int32_t ProcessListDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Puts the nearest existing ancestor, or the path itself, into the reply.
std::int32_t ProcessExistedPathCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// The KB that a tree uses, never negative: an error number says that the figure is not whole.
std::int32_t ProcessUsedSpaceCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// The KB of the largest file, -1 if the walk failed.
std::int32_t ProcessMaxSizeCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

// Directories.

/// Creates `src` with `user`, `group` and `perm`, all of which are needed; mode 0 is refused.
std::int32_t ProcessPrepareDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Creates `src` with mode 0700.
std::int32_t ProcessMkDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

// Migration; -2 when the source does not exist.

/// Each child of `src` into `dst`: copied for command 6, moved for any other.
std::int32_t ProcessMigrateSubCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// `src` itself to `dst`: copied for command 7, moved for any other.
std::int32_t ProcessMigrateAllCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// `src` to `dst` by copying, with `user`, `group` and `perm`, all of which are needed; mode 0 is refused.
std::int32_t ProcessCopyCombCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

// Removal, labels, owner and mode of `src`.

/// Stops at the first failure for command 8, goes on past failures for any other.
std::int32_t ProcessRemoveCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Labels by the path's own rules for command 9, by its parent's for any other.
std::int32_t ProcessRestoreconCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Gives `src` the owner `user` and `group`.
std::int32_t ProcessChOwnCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Gives `src` the mode `perm`; mode 0 is refused.
std::int32_t ProcessChModCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

}  // namespace TAVO::FileMigrateOrvane
