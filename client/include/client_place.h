// Which object is at a path, asked from the daemon without leaving a record. A question about a path that is missing,
// or goes through a file or a broken link, or has too long a name, fails and leaves a record. Records are evidence, so
// a program that only wants to show something must not add its own. These functions therefore only look names up in
// listings of directories that they found in listings, from "/" down; that cannot fail. (Asking whether a path exists
// would follow links, and record the broken ones.) Functions without state.
#pragma once

#include <string>

#include "client_export.h"
#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateClient {

struct Place {
    enum class Kind {
        Unknown,    ///< cannot be asked: below a link or a file, or the daemon failed
        NoParent,   ///< its parent directory is missing too
        Absent,     ///< only its parent directory exists
        Directory,  ///< not a link to one
        Other,      ///< a file, a link, ...
    };
    Kind kind = Kind::Unknown;
    std::string path;    ///< without "//", "/./" and trailing "/"
    std::string parent;  ///< in the same form

    [[nodiscard]] bool Exists() const { return kind == Kind::Directory || kind == Kind::Other; }
};

/// @param path  absolute
[[nodiscard]] FILE_MIGRATE_EXPORT Place Look(Client& client, const std::string& path);

/// The kind of a name in an existing directory: Absent, Directory, Other or Unknown.
[[nodiscard]] FILE_MIGRATE_EXPORT Place::Kind LookIn(Client& client, const std::string& directory,
                                                     const std::string& name);

/// Whether `inner` is `outer` or lies below it. Both come from Look.
[[nodiscard]] FILE_MIGRATE_EXPORT bool IsWithin(const Place& inner, const Place& outer);

}  // namespace TAVO::FileMigrateClient
