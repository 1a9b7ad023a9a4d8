// What a record says, in words: the failed operation, the snapshots decoded, and the cause where it is certain.
// Stateless; any thread. Bytes of paths and attributes come as they are: whoever shows them makes them printable.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "record.h"

namespace TAVO::FileMigrateOrvane {

/// What failed: "rename", "copy", "change owner"; the type itself where it is not known.
std::string_view FailureInWords(std::string_view type);

/// Of an object that could be looked at: "drwxr-x--- 0:1000 4096 B 8 blocks ino 12 dev 253:0". A device has its number
/// in place of the size.
std::string StatInWords(const StatSnapshot& stat);

/// The letters of lsattr, then each flag in words and those without a letter as one number:
/// "----i---------e------- immutable, extents, 0x200000".
std::string InodeFlagsInWords(std::uint32_t flags);

/// A set of capabilities that a record's joined digits can mean: names as capabilities(7) has them, lower case.
struct CapabilityReading {
    std::uint64_t bits = 0;
    std::string names;  ///< "all", "none", "all but NAMES", or names with commas between
};

/// All readings of the joined digits, those with capabilities that this system does not know only where there is no
/// other; none for digits that cannot come from two 32-bit halves.
std::vector<CapabilityReading> CapabilityReadings(std::string_view joinedDigits);

/// Why it failed, where the record leaves no doubt ("the destination's parent directory /data/new does not exist");
/// empty where it does.
std::string LikelyCause(const Record& record);

/// What to run where the record lacks what would tell the cause: "lsattr -d /data/a (this record holds no inode
/// flags)"; empty for most.
std::string ToCheck(const Record& record);

}  // namespace TAVO::FileMigrateOrvane
