// What orvanectl ends with. Scripts read these numbers.
#pragma once

namespace TAVO::FileMigrateOrvane {

enum class ExitStatus : int {
    Success = 0,
    Failed = 1,  ///< the operation failed; for exists and is-dir also "no"
    Usage = 2,   ///< wrong arguments, or a request that the daemon would refuse
    SourceMissing = 3,
    NoAnswer = 4,  ///< no daemon, or no whole reply from it
};

}  // namespace TAVO::FileMigrateOrvane
