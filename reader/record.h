// One diagnostic record as it was written: what failed, on which paths, with which error and when, and the snapshots
// of the objects concerned. Plain values. docs/records.md tells the texts they come from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace TAVO::FileMigrateOrvane {

/// "lstat PATH:...": the object itself, links not followed.
struct StatSnapshot {
    std::string path;
    int errorNumber = 0;  ///< when not 0, the object could not be looked at and the rest means nothing
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint32_t mode = 0;  ///< type and permission bits
    std::uint64_t links = 0;
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint64_t specialDevice = 0;  ///< of a device file
    std::int64_t size = 0;            ///< bytes
    std::int64_t blockSize = 0;
    std::int64_t blocks = 0;  ///< of 512 bytes
};

/// "llistxattr PATH:...": one extended attribute.
struct AttributeSnapshot {
    std::string path;
    int errorNumber = 0;  ///< when not 0 or `key` is empty: there is none, or they could not be listed
    std::string key;
    std::optional<std::string> value;  ///< bytes up to the first NUL; none for an empty attribute
};

/// "PATH inode flags:..." and its failures.
struct FlagsSnapshot {
    std::string path;        ///< resolved, unless that failed
    std::string failedStep;  ///< "realpath", "open" or "ioctl"; empty when the flags were read
    int errorNumber = 0;     ///< of the failed step
    std::uint32_t flags = 0;
};

/// "file_migrate_orvane proc stat:..." or its failure: the daemon's own credentials.
struct ProcessSnapshot {
    int errorNumber = 0;  ///< of capget; when not 0 the rest means nothing
    std::uint32_t euid = 0;
    std::uint32_t egid = 0;
    // Hexadecimal digits of the upper and the lower 32 bits, joined without padding: see CapabilityReadings.
    std::string effective;
    std::string permitted;
    std::string inheritable;
};

/// "ret=...": what the label library gave.
struct LabelResult {
    int ret = 0;
};

using Snapshot = std::variant<StatSnapshot, AttributeSnapshot, FlagsSnapshot, ProcessSnapshot, LabelResult>;

struct Record {
    std::size_t offset = 0;  ///< of its first byte in what was parsed
    std::size_t length = 0;  ///< bytes, snapshots included
    std::string type;        ///< "MOVE", "Unlink", ...
    std::string src;
    std::string dst;
    std::string user;
    std::string group;
    std::string perm;
    std::string recurseOpt;
    std::optional<int> errorNumber;  ///< a refused request has none
    std::string times;               ///< local time of the daemon, YYYYMMDDhhmmss
    std::string refusedField;        ///< of a refused request: which field ("dts" is the destination), else empty
    std::string refusedValue;        ///< its text as far as the daemon wrote it
    std::vector<Snapshot> snapshots;
    bool isAmbiguous = false;  ///< its bytes can be read in another way too; this is the likelier one
};

}  // namespace TAVO::FileMigrateOrvane
