// Creating directories. For `err` and `recordKind` see path_helpers.h. Nothing is rolled back: what was created
// before a failure stays. The process's umask applies to what mkdir() creates.
#pragma once

#include <string>

#include "path_para.h"

namespace TAVO::FileMigrateOrvane {

/// Creates one directory with mode 0700. 0 also where anything of that name exists.
[[nodiscard]] int DoMkDir(const std::string& path, int& err, int recordKind);

/// Creates a directory, with RECURSE_ALL every missing ancestor too, each with mode 0700. An existing path
/// succeeds whatever the option; EINVAL for an unknown option.
[[nodiscard]] int MkDir(const std::string& path, int recurseOpt, int& err, int recordKind);

/// Creates a directory with the given owner and mode, with RECURSE_ALL every missing ancestor alike. A path that
/// exists keeps its own owner and mode and succeeds whatever the option; EINVAL for an unknown option.
[[nodiscard]] int PrepareDir(const PathPara& para, int& err, int recordKind);

/// Creates one directory and gives it first its mode, then its owner. A path that exists is left as it is.
/// `para.recurseOpt` is ignored.
[[nodiscard]] int DoPrepareDir(const PathPara& para, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
