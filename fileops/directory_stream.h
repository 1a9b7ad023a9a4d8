// Walking directories by descriptor. Below the path that a request names nothing is followed: an entry is acted
// on relative to the open directory that lists it, and the path's text serves messages, records and labels only.
// A walk holds one stream, so one descriptor, per level; one that copies a second one, of the destination. Each object
// belongs to one thread.
//
// A walk recurses once per level, and a hostile tree may be as deep as the descriptors allow. What a walk does not
// need in its own frame, above all its failures with their log lines, stands in functions that are not inlined.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "record_file.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// An object to act on: `name` relative to the directory `dirFd`. It refers to its parts and owns none of them.
struct Entry {
    int dirFd;           ///< AT_FDCWD for the path of a request
    const char* name;    ///< one name, or the whole path with AT_FDCWD
    unsigned char type;  ///< as readdir() gives it: DT_DIR, DT_REG, ...; DT_UNKNOWN where nobody has looked yet
    std::string& path;   ///< the object's path for messages; grown and shrunk by ChildPath
};

/// Whether a walk is to open the entry: it is a directory, or it is not known what it is (the open then fails and
/// tells why). The file system is asked only where the entry's type is not known: an entry that has been exchanged
/// since it was listed shows when it is acted on.
/// @param recordKind  of the record of a failure to ask
[[nodiscard]] bool TakeForDirectory(const Entry& entry, int& err, int recordKind = RECORD_KIND_NONE);

/// The entry for a path named in a request.
/// @param text  a copy of the path, for messages; it grows and moves, so the entry's name is the path itself
inline Entry TopEntry(const std::string& path, std::string& text) {
    return {AT_FDCWD, path.c_str(), DT_UNKNOWN, text};
}

/// Whether two status records are of one object.
[[nodiscard]] inline bool IsSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Owns an open directory.
class DirectoryStream {
public:
    /// Opens a directory; on failure the stream is empty and errno set. A last component that is a link is not
    /// followed (ENOTDIR).
    [[nodiscard]] static DirectoryStream Open(const Entry& entry);
    /// The same for a path of a request whose last component may be a link, which is followed.
    [[nodiscard]] static DirectoryStream OpenFollowing(const std::string& path);

    explicit operator bool() const { return stream != nullptr; }
    [[nodiscard]] int Fd() const { return dirfd(stream.get()); }
    void Close() { stream.reset(); }
    /// Whether it is this directory, and not another one that bore its name when it was opened.
    [[nodiscard]] bool Is(const struct stat& directory) const;

    /// The next entry but "." and "..", or null at the end. An error while reading counts as the end, and is kept for
    /// ReadError(). The result is good until the next call.
    [[nodiscard]] const dirent* Next();
    /// Why the end that Next() told was none; 0 if it was.
    [[nodiscard]] int ReadError() const { return readError; }

    /// Back to the first entry.
    void Rewind() { rewinddir(stream.get()); }

    /// What Next() gave, as an entry. @param path its text, already that of the child (see ChildPath)
    [[nodiscard]] Entry Child(const dirent& child, std::string& path) const {
        return {Fd(), child.d_name, child.d_type, path};
    }

private:
    struct Closer {
        void operator()(DIR* directory) const;
    };
    explicit DirectoryStream(int fd);

    std::unique_ptr<DIR, Closer> stream;
    int readError = 0;
};

/// Opens a directory to act on names in it, which needs no permission to read it. Also opens what is no directory:
/// acting on a name in that fails with ENOTDIR.
/// @param noFollow  O_NOFOLLOW, or 0 where the name is a request's path
[[nodiscard]] UniqueFd OpenDirectory(const Entry& entry, int noFollow);

/// The entry `name` in a directory of a walk's destination.
/// @param directory  none only for the path of a request at which nothing can be opened: acting on the entry then fails
///                   as its path says
/// @param path       the text of the entry's own path
[[nodiscard]] inline Entry ChildOf(const UniqueFd& directory, const char* name, std::string& path) {
    return directory ? Entry{directory.Get(), name, DT_UNKNOWN, path} : Entry{AT_FDCWD, path.c_str(), DT_UNKNOWN, path};
}

/// Makes a path's text that of a child, parent + "/" + name, for the length of a scope.
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

/// Calls `visit` with each regular file and each directory that a source directory lists, and with its place in the
/// destination, while both paths' texts are those of the child. Entries of other types, and those whose type their file
/// system does not tell, are left out and counted. Ends as Next() does.
template <class Visit>
void VisitFilesAndDirectories(DirectoryStream& source, std::string& srcPath, const UniqueFd& target,
                              std::string& dstPath, std::size_t& skipped, Visit visit) {
    while (const dirent* child = source.Next()) {
        if (child->d_type != DT_REG && child->d_type != DT_DIR) {
            ++skipped;
            continue;
        }
        const ChildPath joinedSrc(srcPath, child->d_name);
        const ChildPath joinedDst(dstPath, child->d_name);
        visit(source.Child(*child, srcPath), ChildOf(target, child->d_name, dstPath));
    }
}

}  // namespace TAVO::FileMigrateOrvane
