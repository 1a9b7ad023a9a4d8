// Creating directories. For `err` and `recordKind` see path_helpers.h. Nothing is rolled back: what was created
// before a failure stays. The process's umask applies to what mkdir() creates. No state; may run on any thread.
//
// The ancestors that exist are resolved as the request names them. From the first directory that the request creates
// on, whoever owns its parent may exchange it: each further level is made relative to the open directory above it,
// and a link in place of a level is an error.
#pragma once

#include <string>

#include "directory_stream.h"
#include "path_para.h"

namespace TAVO::FileMigrateOrvane {

/// Creates one directory with mode 0700. 0 also where anything of that name exists.
[[nodiscard]] int DoMkDir(const std::string& path, int& err, int recordKind);

/// The same relative to an open directory. @param directory its type is not looked at
[[nodiscard]] int DoMkDir(const Entry& directory, int& err, int recordKind);

/// Logs and records that a directory could not be created, with an error number, and hands that out. @return -1
[[nodiscard]] int MkDirFailed(const std::string& path, int error, int& err, int recordKind);

/// Creates a directory, with RECURSE_ALL every missing ancestor too, each with mode 0700. An existing path
/// succeeds whatever the option; EINVAL for an unknown option.
[[nodiscard]] int MkDir(const std::string& path, int recurseOpt, int& err, int recordKind);

/// Creates a directory with the given owner and mode, with RECURSE_ALL every missing ancestor alike. A path that
/// exists keeps its own owner and mode and succeeds whatever the option; EINVAL for an unknown option.
[[nodiscard]] int PrepareDir(const PathPara& para, int& err, int recordKind);

/// Creates one directory and gives it first its mode, then its owner: the very directory that was created, or none
/// (EEXIST where another object has taken its name since). A path that exists is left as it is.
/// `para.recurseOpt` is ignored.
[[nodiscard]] int DoPrepareDir(const PathPara& para, int& err, int recordKind);

/// The same relative to an open directory. @param directory its type is not looked at
[[nodiscard]] int DoPrepareDir(const Entry& directory, const PermPara& perm, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
