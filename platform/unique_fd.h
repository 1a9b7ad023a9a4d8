// Owners of descriptors and of errno. Each is used by one thread at a time. Their destructors keep errno, so that a
// function can return a failure past them.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace TAVO::FileMigrateOrvane {

/// Restores errno at the end of a scope.
class ErrnoKeeper {
public:
    ErrnoKeeper() : saved(errno) {}
    ~ErrnoKeeper() { errno = saved; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int saved;
};

/// Owns a file descriptor; a negative number means that there is no descriptor.
class UniqueFd {
public:
    explicit UniqueFd(int descriptor = -1) : fd(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~UniqueFd() {
        if (fd >= 0) {
            const ErrnoKeeper keeper;
            close(fd);
        }
    }

    [[nodiscard]] int Get() const { return fd; }
    /// Closes the descriptor and returns 0, or -1 with errno set. Returns 0 if there is no descriptor.
    [[nodiscard]] int Close() {
        const int closing = Release();
        return closing < 0 ? 0 : close(closing);
    }
    [[nodiscard]] int Release() { return std::exchange(fd, -1); }
    explicit operator bool() const { return fd >= 0; }

private:
    int fd;
};

}  // namespace TAVO::FileMigrateOrvane
