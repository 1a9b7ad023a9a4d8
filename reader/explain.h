// A record in words: the failed operation, the decoded snapshots, and the cause if it is certain. Functions without
// state; any thread may call them. Paths and attributes are copied byte for byte; the caller makes them printable.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "record.h"

namespace TAVO::FileMigrateOrvane::Reader {

/// The failed operation: "rename", "copy", "change owner"; the type itself if it is unknown.
std::string_view FailureInWords(std::string_view type);

/// An object as "drwxr-x--- 0:1000 4096 B 8 blocks ino 12 dev 253:0". A device has its device number instead of the
/// size.
std::string StatInWords(const StatSnapshot& stat);

/// The letters of lsattr, then each flag in words, and the unknown flags as one number:
/// "----i---------e------- immutable, extents, 0x200000".
std::string InodeFlagsInWords(std::uint32_t flags);

/// One set of capabilities that the joined digits of a record can mean. Names as in capabilities(7), in lower case.
struct CapabilityReading {
    std::uint64_t bits = 0;
    std::string names;  ///< "all", "none", "all but NAMES", or names with commas between
};

/// All readings of the joined digits; empty if they cannot be two 32-bit halves. Readings with capabilities unknown to
/// this system are left out if there are others.
std::vector<CapabilityReading> CapabilityReadings(std::string_view joinedDigits);

/// Why an operation failed.
struct Cause {
    std::string_view word{};  ///< a stable name for programs, such as "immutable"; empty if no cause is certain
    std::string path{};       ///< the object at fault; may be empty
    std::string text{};       ///< "the destination's parent directory /data/new does not exist"
};

/// The cause, if the record leaves no doubt about it.
Cause LikelyCause(const Record& record);

/// The path as one word of a shell command.
std::string Quoted(const std::string& path);

/// The command to run if the record does not show the cause: "lsattr -d /data/a (this record holds no inode flags)";
/// empty for most records.
std::string ToCheck(const Record& record);

}  // namespace TAVO::FileMigrateOrvane::Reader
