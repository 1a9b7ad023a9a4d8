// One diagnostic record as it was written: what failed, on which paths, with which error and when, and the snapshots
// of the objects involved. Plain values. docs/records.md describes the texts that they are read from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace TAVO::FileMigrateOrvane::Reader {

/// "lstat PATH:...": the object itself; links are not followed.
struct StatSnapshot {
    std::string path;
    int errorNumber = 0;  ///< error of lstat; if it is not 0, the other fields are meaningless
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint32_t mode = 0;  ///< type and permission bits
    std::uint64_t links = 0;
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint64_t specialDevice = 0;  ///< for a device file
    std::int64_t size = 0;            ///< bytes
    std::int64_t blockSize = 0;
    std::int64_t blocks = 0;  ///< units of 512 bytes
};

/// "llistxattr PATH:...": one extended attribute.
struct AttributeSnapshot {
    std::string path;
    int errorNumber = 0;  ///< if it is not 0 or `key` is empty: no attributes, or they could not be listed
    std::string key;
    std::optional<std::string> value;  ///< bytes up to the first NUL; unset for an empty attribute
};

/// "PATH inode flags:..." or the error of one of its steps.
struct FlagsSnapshot {
    std::string path;        ///< resolved, unless realpath failed
    std::string failedStep;  ///< "realpath", "open" or "ioctl"; empty when the flags were read
    int errorNumber = 0;     ///< error of the failed step
    std::uint32_t flags = 0;
};

/// "file_migrate_orvane proc stat:..." or its error: the daemon's own credentials.
struct ProcessSnapshot {
    int errorNumber = 0;  ///< error of capget; if it is not 0, the other fields are meaningless
    std::uint32_t euid = 0;
    std::uint32_t egid = 0;
    // Hexadecimal digits of the upper and the lower 32 bits, joined without padding: see CapabilityReadings.
    std::string effective;
    std::string permitted;
    std::string inheritable;
};

/// "ret=...": what the label library returned.
struct LabelResult {
    int ret = 0;
};

using Snapshot = std::variant<StatSnapshot, AttributeSnapshot, FlagsSnapshot, ProcessSnapshot, LabelResult>;

struct Record {
    std::size_t offset = 0;  ///< position of its first byte in the parsed bytes
    std::size_t length = 0;  ///< bytes, snapshots included
    std::string type;        ///< "MOVE", "Unlink", ...
    std::string src;
    std::string dst;
    std::string user;
    std::string group;
    std::string perm;
    std::string recurseOpt;
    std::optional<int> errorNumber;  ///< unset for a refused request
    std::string times;               ///< local time of the daemon, YYYYMMDDhhmmss
    std::string refusedField;        ///< the field of a refused request ("dts" is the destination); empty otherwise
    std::string refusedValue;        ///< the field's text as far as the daemon wrote it
    std::vector<Snapshot> snapshots;
    bool isAmbiguous = false;  ///< its bytes could be read in another way too; this is the more likely one
};

/// The directory of a path as dirname(3) computes it, which is what the daemon takes snapshots of.
std::string ParentOf(std::string_view path);

/// Whether the daemon cut one of the paths because of its length. It does not lead to the object then, and what the
/// record has for the parent directory may be another directory above the object.
bool HasCutPath(const Record& record);

/// How `path` is involved in the record: "object" (the only path), "source", "destination", "parent directory",
/// "source's parent directory" or "destination's parent directory", or "directory above" in a record with a cut path;
/// empty for any other path.
std::string_view RoleOf(const Record& record, std::string_view path);

}  // namespace TAVO::FileMigrateOrvane::Reader
