// The process's file-creation mask. umask(2) cannot read it without changing it for all threads.
#pragma once

#include <sys/types.h>

namespace TAVO::FileMigrateOrvane {

/// Reads the mask from /proc. If that fails, everything counts as masked. May run on any thread.
[[nodiscard]] mode_t ReadProcessUmask();

}  // namespace TAVO::FileMigrateOrvane
