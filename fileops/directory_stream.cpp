#include "directory_stream.h"

#include <cerrno>
#include <cstring>

#include "path_helpers.h"

namespace TAVO::FileMigrateOrvane {
namespace {

// O_NONBLOCK: what was a directory may have become a pipe.
constexpr int OPEN_FLAGS = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

bool IsSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

bool TakeForDirectory(const Entry& entry, int& err, int recordKind) {
    return entry.type == DT_UNKNOWN ? IsDir(entry.dirFd, entry.name, entry.path, err, recordKind) != 0
                                    : entry.type == DT_DIR;
}

DirectoryStream::DirectoryStream(int fd) {
    UniqueFd owner(fd);
    if (owner) {
        stream.reset(fdopendir(owner.Get()));
        if (stream != nullptr) {
            (void)owner.Release();  // the stream owns it now
        }
    }
}

void DirectoryStream::Closer::operator()(DIR* directory) const {
    const ErrnoKeeper keeper;
    closedir(directory);
}

DirectoryStream DirectoryStream::Open(const Entry& entry) {
    return DirectoryStream(openat(entry.dirFd, entry.name, OPEN_FLAGS | O_NOFOLLOW));
}

DirectoryStream DirectoryStream::OpenFollowing(const std::string& path) {
    return DirectoryStream(open(path.c_str(), OPEN_FLAGS));
}

const dirent* DirectoryStream::Next() {
    while (true) {
        errno = 0;
        const dirent* entry = readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): one thread has the stream
        if (entry == nullptr) {
            readError = errno;
        }
        if (entry == nullptr || !IsSelfOrParent(entry->d_name)) {
            return entry;
        }
    }
}

bool DirectoryStream::Is(const struct stat& directory) const {
    struct stat st {};
    return fstat(Fd(), &st) == 0 && IsSame(st, directory);
}

UniqueFd OpenDirectory(const Entry& entry, int noFollow) {
    UniqueFd directory(openat(entry.dirFd, entry.name, OPEN_FLAGS | noFollow));
    if (!directory && (errno == EACCES || errno == ENOTDIR)) {
        directory = UniqueFd(openat(entry.dirFd, entry.name, O_PATH | O_CLOEXEC | noFollow));
    }
    return directory;
}

}  // namespace TAVO::FileMigrateOrvane
