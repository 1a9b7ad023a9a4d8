#include "directory_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "top_path.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// How much the kernel lists in one call.
constexpr std::size_t PART_SIZE = 32768;

// O_NONBLOCK, because a pipe may have replaced the directory.
constexpr int OPEN_FLAGS = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

bool IsSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

int Lstat(const Entry& entry, struct stat& st) {
    return fstatat(entry.dirFd, entry.name, &st, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

[[gnu::noinline]] unsigned char TypeOf(const Entry& entry) {
    struct stat st {};
    if (entry.type != DT_UNKNOWN) {
        return entry.type;
    }
    return static_cast<unsigned char>(Lstat(entry, st) == 0 ? IFTODT(st.st_mode) : mode_t{DT_UNKNOWN});
}

DirectoryStream DirectoryStream::Open(const Entry& entry) {
    return DirectoryStream(openat(entry.dirFd, entry.name, OPEN_FLAGS | O_NOFOLLOW));
}

DirectoryStream DirectoryStream::OpenFollowing(const std::string& path) {
    return DirectoryStream(open(path.c_str(), OPEN_FLAGS));
}

DirectoryStream DirectoryStream::OpenTop(const std::string& path) {
    TopPath top(path);
    return top.DemandsDirectory() ? Open(top.AsEntry()) : OpenFollowing(path);
}

DirectoryStream DirectoryStream::Of(const UniqueFd& directory) {
    if ((fcntl(directory.Get(), F_GETFL) & O_PATH) != 0) {
        std::string unused;
        return Open({directory.Get(), ".", DT_DIR, unused});
    }
    DirectoryStream stream(fcntl(directory.Get(), F_DUPFD_CLOEXEC, 0));
    if (stream) {
        stream.Rewind();  // both descriptors share one position
    }
    return stream;
}

const dirent* DirectoryStream::Next() {
    while (at < size || ReadPart()) {
        const auto* entry = reinterpret_cast<const dirent*>(part.get() + at);
        at += entry->d_reclen;
        if (!IsSelfOrParent(entry->d_name)) {
            return entry;
        }
    }
    return nullptr;
}

/// As with readdir(), the listing of a directory that has been removed ends without an error.
[[gnu::noinline]] bool DirectoryStream::ReadPart() {
    alignas(dirent) std::array<std::byte, PART_SIZE> listed;
    const ssize_t got = getdents64(Fd(), listed.data(), listed.size());
    readError = got < 0 && errno != ENOENT ? errno : 0;
    size = got > 0 ? static_cast<std::size_t>(got) : 0;
    at = 0;
    part = std::make_unique_for_overwrite<std::byte[]>(size);
    std::copy_n(listed.begin(), size, part.get());
    return size > 0;
}

void DirectoryStream::Rewind() {
    (void)lseek(Fd(), 0, SEEK_SET);
    size = at = 0;
}

bool DirectoryStream::Is(const struct stat& other) const {
    struct stat st {};
    return fstat(Fd(), &st) == 0 && IsSame(st, other);
}

UniqueFd OpenDirectory(const Entry& entry, Link link) {
    const int noFollow = link == Link::Refuse ? O_NOFOLLOW : 0;
    UniqueFd directory(openat(entry.dirFd, entry.name, OPEN_FLAGS | noFollow));
    if (!directory && (errno == EACCES || errno == ENOTDIR)) {
        directory = UniqueFd(openat(entry.dirFd, entry.name, O_PATH | O_CLOEXEC | noFollow));
    }
    return directory;
}

}  // namespace TAVO::FileMigrateOrvane
