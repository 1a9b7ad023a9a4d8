// What the snapshots of one record say about its objects. Refers to the record; used by one thread.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "record.h"

namespace TAVO::FileMigrateOrvane::Reader {

class Evidence {
public:
    explicit Evidence(const Record& toExplain);

    const Record& record;
    const std::string srcParent;
    const std::string dstParent;

    [[nodiscard]] bool IsType(std::string_view type) const { return record.type == type; }
    [[nodiscard]] bool HasTwoPaths() const { return IsType("MOVE") || IsType("COPY"); }

    /// The parent directories that the operation needs.
    [[nodiscard]] std::vector<std::string> Parents() const;

    /// An existing object on the file system that the operation writes to.
    [[nodiscard]] const std::string& Target() const;

    /// The path with its role: "the destination /data/b".
    [[nodiscard]] std::string Named(const std::string& path) const;

    /// "the destination /data/b is a pipe". lstat on the object must have succeeded.
    [[nodiscard]] std::string IsA(const std::string& path) const;

    /// The error of lstat on the path; 0 if lstat succeeded or was not called.
    [[nodiscard]] int ErrorOf(std::string_view path) const;

    /// The object; null if lstat failed or was not called.
    [[nodiscard]] const StatSnapshot* Object(std::string_view path) const;

    /// Whether the object is known and has that type (S_IFDIR, ...).
    [[nodiscard]] bool Is(std::string_view path, mode_t type) const;

    /// The object's inode flags, or why they could not be read; null if the record holds none.
    [[nodiscard]] const FlagsSnapshot* Flags(std::string_view path) const;

    /// Whether the object itself, not the target of a link, has that inode flag.
    [[nodiscard]] bool HasFlag(std::string_view path, std::uint32_t flag) const;

    /// The security label; empty if there is none.
    [[nodiscard]] std::string_view Label(std::string_view path) const;

    /// The daemon's own credentials; null if they are not known.
    [[nodiscard]] const ProcessSnapshot* Process() const;

    /// Whether the capability was effective. If the digits can be read in several ways, all readings must agree.
    [[nodiscard]] bool Holds(int capability) const { return AllReadings(capability, true); }
    [[nodiscard]] bool Lacks(int capability) const { return AllReadings(capability, false); }

private:
    [[nodiscard]] const StatSnapshot* Stat(std::string_view path) const;
    [[nodiscard]] bool AllReadings(int capability, bool isHeld) const;
};

}  // namespace TAVO::FileMigrateOrvane::Reader
