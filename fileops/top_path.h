// A path named in a request, for an operation that changes something there. A slash at its end demands a directory and
// follows nothing: without that rule, "link/" would stand for the tree that the link names.
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
    /// ENOTDIR if the path demands a directory and something else has its name; otherwise 0, also if nothing has.
    [[nodiscard]] int Check() const;

private:
    std::string name;  ///< without slashes at the end
    std::string text;  ///< the path as it was given, for messages; it grows and shrinks with the walk
    bool demandsDirectory;
};

}  // namespace TAVO::FileMigrateOrvane
