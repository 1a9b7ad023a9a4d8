// An object to act on. Below the path that a request names, no link is followed: an entry is a name in the open
// directory that lists it, and the text of its path is only for messages, records and labels.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace TAVO::FileMigrateOrvane {

/// `name` relative to the directory `dirFd`. An entry refers to its parts and owns none of them.
struct Entry {
    int dirFd;           ///< AT_FDCWD for the path of a request
    const char* name;    ///< one name, or the whole path with AT_FDCWD
    unsigned char type;  ///< as readdir() gives it: DT_DIR, DT_REG, ...; DT_UNKNOWN if not looked up yet
    std::string& path;   ///< the object's path for messages; ChildPath lengthens and shortens it
};

/// The entry for a path named in a request.
/// @param text  a copy of the path, for messages. It may move when it grows, so the entry's name is the path itself
inline Entry TopEntry(const std::string& path, std::string& text) {
    return {AT_FDCWD, path.c_str(), DT_UNKNOWN, text};
}

/// Gets the status of an entry without following a link. @return 0 or an error number
[[nodiscard]] int Lstat(const Entry& entry, struct stat& st);

/// The type of an entry, as readdir() gives it. Looks it up if it is not known yet; DT_UNKNOWN if that fails.
[[nodiscard]] unsigned char TypeOf(const Entry& entry);

/// Whether two status records are of one object.
[[nodiscard]] inline bool IsSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Turns the text of a directory's path into that of a child, parent + "/" + name, for the length of a scope.
class ChildPath {
public:
    ChildPath(std::string& parentPath, const char* name) : path(parentPath), parentLength(parentPath.length()) {
        path += '/';
        path += name;
    }
    ~ChildPath() { path.resize(parentLength); }
    ChildPath(const ChildPath&) = delete;
    ChildPath& operator=(const ChildPath&) = delete;

private:
    std::string& path;
    const std::size_t parentLength;
};

}  // namespace TAVO::FileMigrateOrvane
