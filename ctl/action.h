// What the command line selected, and the status that orvanectl exits with. Scripts rely on these numbers.
#pragma once

#include <functional>

namespace TAVO::FileMigrateOrvane::Ctl {

enum class ExitStatus : int {
    Success = 0,
    Failed = 1,  ///< the operation failed; for exists and is-dir also "no"
    Usage = 2,   ///< wrong arguments, or a request that the daemon would refuse
    SourceMissing = 3,
    NoAnswer = 4,  ///< no daemon, or no complete reply from it
};

/// Runs after the whole command line has been parsed.
using Action = std::function<ExitStatus()>;

}  // namespace TAVO::FileMigrateOrvane::Ctl
