// Creating directories. For `err` and `recordKind` see path_helpers.h. Nothing is rolled back: what was created before
// a failure stays. The process's umask applies to what mkdir() creates. No state; may run on any thread.
//
// Ancestors that exist are resolved as the request names them. The owner of a new directory's parent may replace it at
// any moment, so from the first directory that the request creates, each further level is made relative to the open
// directory above it, and a link in place of a level is an error.
#pragma once

#include <string>

#include "entry.h"
#include "failures.h"
#include "path_para.h"

namespace TAVO::FileMigrateOrvane {

/// The mode of a new directory for which no other mode is given.
inline constexpr unsigned int CREATE_MODE = 0700;

/// Creates one directory with mode CREATE_MODE. Success also if anything of that name exists.
[[nodiscard]] int DoMkDir(const Entry& directory, const Report& report);

/// Creates a directory, with RECURSE_ALL every missing ancestor too, each with mode CREATE_MODE. An existing path
/// succeeds whatever the option; EINVAL for an unknown option.
[[nodiscard]] int MkDir(const std::string& path, int recurseOpt, int& err, int recordKind);

/// Creates a directory with the given owner and mode, with RECURSE_ALL every missing ancestor in the same way. A path
/// that exists keeps its own owner and mode and succeeds whatever the option; EINVAL for an unknown option.
[[nodiscard]] int PrepareDir(const PathPara& para, int& err, int recordKind);

/// Creates one directory of a copy and gives it first its mode, then its owner. Only the directory that was created
/// gets them; EEXIST if another object has taken its name. It does not keep the access lists that it inherited. A path
/// that exists is left as it is.
[[nodiscard]] int DoPrepareDir(const Entry& directory, const PermPara& perm, const Report& report);

}  // namespace TAVO::FileMigrateOrvane
