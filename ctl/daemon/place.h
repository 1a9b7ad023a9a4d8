// What stands at a path, found out from the daemon without a record. A question about a path that is missing, leads
// through a file or a strange link, or has too long a name leaves a record of its failure; these records are evidence
// and hold nothing of ours. So a name is only looked for in the listing of a directory that was itself found in a
// listing, from "/" down: that cannot fail, whatever stands there. (To ask whether the path exists would follow links
// on the way, and record those that lead nowhere that can be told.) Stateless.
#pragma once

#include <string>

#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateOrvane {

struct Place {
    enum class Kind {
        Unknown,    ///< not to be asked about: below a link or a file, the daemon fails, ...
        NoParent,   ///< nor is the directory that would hold it
        Absent,     ///< its parent is there
        Directory,  ///< no link
        Other,      ///< a file, a link, ...
    };
    Kind kind = Kind::Unknown;
    std::string path;    ///< without "//", "/./" and a "/" at its end
    std::string parent;  ///< likewise

    [[nodiscard]] bool IsThere() const { return kind == Kind::Directory || kind == Kind::Other; }
};

/// @param path  absolute
Place Look(Client& client, const std::string& path);

/// The kind of a name in a directory that is known to be one: Absent, Directory, Other or Unknown.
Place::Kind LookIn(Client& client, const std::string& directory, const std::string& name);

/// Whether a place is the other one or lies below it; their paths are as Look gives them.
bool IsWithin(const Place& inner, const Place& outer);

}  // namespace TAVO::FileMigrateOrvane
