// Walking directories by descriptor. A walk holds one stream, and so one descriptor, for each level; a copy holds a
// second one, of the destination. Each object belongs to one thread.
//
// A walk recurses once for each level, and a hostile tree may be as deep as the descriptors allow. To keep a walk's
// stack frame small, functions with large locals are not inlined into it.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstddef>
#include <memory>
#include <string>

#include "entry.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// Whether a link in the place of a directory is followed or is an error.
enum class Link { Follow, Refuse };

/// Owns an open directory.
class DirectoryStream {
public:
    /// Opens a directory; on failure the stream is empty and errno set. A link is not followed (ENOTDIR).
    [[nodiscard]] static DirectoryStream Open(const Entry& entry);
    /// The same for the path of a request, where a link is followed.
    [[nodiscard]] static DirectoryStream OpenFollowing(const std::string& path);
    /// The same for a path below which something changes: with a slash at its end, a link is not followed (ENOTDIR).
    [[nodiscard]] static DirectoryStream OpenTop(const std::string& path);
    /// A stream of a directory that is open for reading.
    [[nodiscard]] static DirectoryStream Of(const UniqueFd& directory);

    explicit operator bool() const { return static_cast<bool>(directory); }
    [[nodiscard]] int Fd() const { return directory.Get(); }
    void Close() { (void)directory.Close(); }
    /// Whether this is the given directory, and not another one that had the same name when the stream was opened.
    [[nodiscard]] bool Is(const struct stat& other) const;

    /// The next entry except "." and "..", or null at the end or after an error, see ReadError(). Valid until the next
    /// call.
    [[nodiscard]] const dirent* Next();
    /// The error that ended the listing early; 0 at its real end.
    [[nodiscard]] int ReadError() const { return readError; }

    /// Goes back to the first entry.
    void Rewind();

    /// What Next() returned, as an entry. The type is looked up if the file system does not list it.
    /// @param path  its text, already that of the child (see ChildPath)
    [[nodiscard]] Entry Child(const dirent& child, std::string& path) const {
        const Entry entry{Fd(), child.d_name, child.d_type, path};
        return child.d_type != DT_UNKNOWN ? entry : Entry{entry.dirFd, entry.name, TypeOf(entry), path};
    }

private:
    explicit DirectoryStream(int fd) : directory(fd) {}
    bool ReadPart();

    UniqueFd directory;
    /// The entries that the kernel listed last. No larger than needed, because a walk has one for each level. The C
    /// library's streams take 32 KB each and two more calls to open.
    std::unique_ptr<std::byte[]> part;
    std::size_t size = 0;  ///< of `part`
    std::size_t at = 0;    ///< of the next entry in `part`
    int readError = 0;
};

/// Opens a directory to act on names in it, which needs no permission to read it. Also opens what is not a directory;
/// acting on a name in that fails with ENOTDIR. On failure the result is empty and errno set.
[[nodiscard]] UniqueFd OpenDirectory(const Entry& entry, Link link);

/// The entry `name` in a directory of a copy's destination.
/// @param directory  empty only if nothing can be opened at the destination that a request names: the entry is then
///                   named by its path, and acting on it fails as that path requires
/// @param path       the text of the entry's own path
[[nodiscard]] inline Entry ChildOf(const UniqueFd& directory, const char* name, std::string& path) {
    return directory ? Entry{directory.Get(), name, DT_UNKNOWN, path} : Entry{AT_FDCWD, path.c_str(), DT_UNKNOWN, path};
}

}  // namespace TAVO::FileMigrateOrvane
