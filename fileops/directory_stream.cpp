#include "directory_stream.h"

#include <cstring>

#include "path_helpers.h"
#include "record_file.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

// O_NONBLOCK: what was a directory may have become a pipe.
constexpr int OPEN_FLAGS = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

bool IsSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

bool TakeForDirectory(const Entry& entry, int& err) {
    return entry.type == DT_UNKNOWN ? IsDir(entry.dirFd, entry.name, entry.path, err, RECORD_KIND_NONE) != 0
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
        const dirent* entry = readdir(stream.get());  // NOLINT(concurrency-mt-unsafe): one thread has the stream
        if (entry == nullptr || !IsSelfOrParent(entry->d_name)) {
            return entry;
        }
    }
}

}  // namespace TAVO::FileMigrateOrvane
