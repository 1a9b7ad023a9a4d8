// A path named in a request, for an operation that changes something there. A path that ends in a slash must be a
// directory, and a link is not followed. Otherwise "link/" would be the tree that the link points to.
#pragma once

#include <sys/types.h>

#include <string>

#include "entry.h"

namespace TAVO::FileMigrateOrvane {

class TopPath {
public:
    explicit TopPath(const std::string& path);

    /// The object of that name. The entry refers to this object.
    [[nodiscard]] Entry AsEntry() { return {AT_FDCWD, name.c_str(), DT_UNKNOWN, text}; }
    [[nodiscard]] bool DemandsDirectory() const { return demandsDirectory; }
    /// S_IFDIR, S_IFREG, ... of the object, without following a link; 0 if nothing is found.
    [[nodiscard]] mode_t Type() const;
    /// ENOTDIR if the path must be a directory and is something else; otherwise 0, also if nothing exists there.
    [[nodiscard]] int Check() const;

private:
    std::string name;  ///< without slashes at the end
    std::string text;  ///< the path as it was given, for messages; it grows and shrinks with the walk
    bool demandsDirectory;
};

}  // namespace TAVO::FileMigrateOrvane
