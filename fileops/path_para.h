// The parameters of the operations on paths.
#pragma once

#include <cstdint>
#include <string>

namespace TAVO::FileMigrateOrvane {

/// The value of a `uid`, `gid` or `mode` that is not given.
inline constexpr std::uint32_t NOT_GIVEN = 0xFFFFFFFF;

// The recursion options; the operations refuse any other value.
inline constexpr std::int32_t RECURSE_NONE = 1;  ///< the path only
inline constexpr std::int32_t RECURSE_ALL = 2;   ///< and everything below it; for creation: every missing ancestor

/// A path and the owner, mode and recursion option for it.
struct PathPara {
    std::string path;
    std::uint32_t uid;
    std::uint32_t gid;
    std::uint32_t mode;  ///< permission bits
    std::int32_t recurseOpt;
};

/// Owner and mode that the combined copy gives to everything it creates.
struct PermPara {
    std::uint32_t uid;
    std::uint32_t gid;
    std::uint32_t mode;  ///< permission bits
};

}  // namespace TAVO::FileMigrateOrvane
