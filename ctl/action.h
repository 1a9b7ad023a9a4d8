// What the command line chose: the function that main runs once the whole line has been read. Its result is what
// orvanectl ends with.
#pragma once

#include <functional>

#include "exit_status.h"

namespace TAVO::FileMigrateOrvane {

using Action = std::function<ExitStatus()>;

}  // namespace TAVO::FileMigrateOrvane
