// What the snapshots of one record say about the objects concerned. Refers to the record; used by one thread.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "record.h"

namespace TAVO::FileMigrateOrvane {

class Evidence {
public:
    explicit Evidence(const Record& toExplain);

    const Record& record;
    const std::string srcParent;
    const std::string dstParent;

    [[nodiscard]] bool IsType(std::string_view type) const { return record.type == type; }
    [[nodiscard]] bool HasTwoPaths() const { return IsType("MOVE") || IsType("COPY"); }

    /// Of the paths that the operation needs.
    [[nodiscard]] std::vector<std::string> Parents() const;

    /// What is on the file system that the operation writes to.
    [[nodiscard]] const std::string& Target() const;

    /// A path and what it is to the operation: "the destination /data/b".
    [[nodiscard]] std::string Named(const std::string& path) const;

    /// "the destination /data/b is a pipe". There must be such an object.
    [[nodiscard]] std::string IsA(const std::string& path) const;

    /// The error of the look at that object; 0 when it was there or was not looked at.
    [[nodiscard]] int ErrorOf(std::string_view path) const;

    /// The object, where the look at it succeeded; else null.
    [[nodiscard]] const StatSnapshot* Object(std::string_view path) const;

    /// Whether the object was looked at and is of that type (S_IFDIR, ...).
    [[nodiscard]] bool Is(std::string_view path, mode_t type) const;

    /// The result of asking for an object's inode flags; null where they were not asked for.
    [[nodiscard]] const FlagsSnapshot* Flags(std::string_view path) const;

    /// Whether the object itself, not one that a link leads to, has that inode flag.
    [[nodiscard]] bool HasFlag(std::string_view path, std::uint32_t flag) const;

    /// The security label; empty where there is none.
    [[nodiscard]] std::string_view Label(std::string_view path) const;

    /// The daemon's own credentials; null where they are not known.
    [[nodiscard]] const ProcessSnapshot* Process() const;

    /// Whether the daemon had a capability in effect. Where the digits can be read in several ways, all must agree.
    [[nodiscard]] bool Holds(int capability) const { return AllReadings(capability, true); }
    [[nodiscard]] bool Lacks(int capability) const { return AllReadings(capability, false); }

private:
    [[nodiscard]] const StatSnapshot* Stat(std::string_view path) const;
    [[nodiscard]] bool AllReadings(int capability, bool isHeld) const;
};

}  // namespace TAVO::FileMigrateOrvane
