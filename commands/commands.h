// The command handlers. Each takes a request's fields, calls the file operations and fills the reply context. Unless
// stated otherwise they return 0 on success and -1 on failure. The file operations log and record their failures; a
// handler logs and records only what is wrong in the request itself.
#pragma once

#include <cstdint>

#include "command.h"

namespace TAVO::FileMigrateOrvane {

// Queries. They use `src` only.

/// 1 if the path exists, 0 if it does not, -1 if that could not be determined.
std::int32_t ProcessIsExistCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// 1 for a directory, 0 for any other object, -1 if that could not be determined.
std::int32_t ProcessIsDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Adds "name:1" for each directory and "name:0" for each other entry to the reply.
std::int32_t ProcessListDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Adds the path to the reply or, if it does not exist, its nearest existing ancestor.
std::int32_t ProcessExistedPathCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// The KB that a tree uses, never negative. An error number means that parts of the tree are missing from the figure.
std::int32_t ProcessUsedSpaceCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// The KB of the largest file; -1 if the walk failed.
std::int32_t ProcessMaxSizeCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

// Directories.

/// Creates `src` with `user`, `group` and `perm`, all of which are required. Mode 0 is refused.
std::int32_t ProcessPrepareDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Creates `src` with mode 0700.
std::int32_t ProcessMkDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

// Migration. The result is -2 if the source does not exist.

/// Copies (command 6) or moves (any other command) each child of `src` into `dst`.
std::int32_t ProcessMigrateSubCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Copies (command 7) or moves (any other command) `src` itself to `dst`.
std::int32_t ProcessMigrateAllCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Copies `src` to `dst` with `user`, `group` and `perm`, all of which are required, and removes `src`. Mode 0 is
/// refused.
std::int32_t ProcessCopyCombCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

// Removal, labels, owner and mode of `src`.

/// Command 8 stops at the first failure; any other continues after failures.
std::int32_t ProcessRemoveCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Command 9 labels by the rules for the path, any other by the rules for its parent.
std::int32_t ProcessRestoreconCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Changes the owner of `src` to `user` and `group`.
std::int32_t ProcessChOwnCmd(const FileMigrateRcvMsg* msg, extraInfo& info);
/// Changes the mode of `src` to `perm`. Mode 0 is refused.
std::int32_t ProcessChModCmd(const FileMigrateRcvMsg* msg, extraInfo& info);

}  // namespace TAVO::FileMigrateOrvane
