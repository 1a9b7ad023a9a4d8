#include "file_data.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr off_t STAT_BLOCK = 512;  // the unit of st_blocks on every file system

constexpr off_t BUFFER_SIZE = 65536;
using Buffer = std::array<char, BUFFER_SIZE>;

/// Longer runs are copied in pieces of this size; each piece is then dropped from the page cache.
constexpr off_t PIECE = off_t{16} << 20;

/// Whether copy_file_range() does not work between these files; reading and writing still may.
bool IsUnable(int error) {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
           error == ETXTBSY;
}

int WriteAll(int out, const char* data, std::size_t size, off_t at) {
    while (size > 0) {
        const ssize_t written = pwrite(out, data, size, at);
        if (written > 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
            at += written;
        } else if (written == 0 || errno != EINTR) {
            return written == 0 ? EIO : errno;
        }
    }
    return 0;
}

/// @return the number of bytes copied, 0 at the end of the file, or a negative error number
ssize_t ReadAndWrite(int in, int out, Buffer& buffer, off_t at, off_t end) {
    const auto size = static_cast<std::size_t>(std::min(BUFFER_SIZE, end - at));
    ssize_t got = 0;
    do {
        got = pread(in, buffer.data(), size, at);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        return -errno;
    }
    const int error = WriteAll(out, buffer.data(), static_cast<std::size_t>(got), at);
    return error == 0 ? got : -error;
}

/// @return the offset it reached, or a negative error number
[[gnu::noinline]] off_t CopyByReading(int in, int out, off_t at, off_t end) {
    Buffer buffer;
    while (at < end) {
        const ssize_t done = ReadAndWrite(in, out, buffer, at, end);
        if (done <= 0) {
            return done < 0 ? done : at;
        }
        at += done;
    }
    return at;
}

/// Reads a file whose size is 0 to its end, but stops as soon as its size is not 0: if another process keeps appending
/// to it, it has no end.
[[gnu::noinline]] int CopyWithoutSize(int in, int out) {
    Buffer buffer;
    struct stat now {};
    off_t at = 0;
    while (now.st_size == 0) {
        const ssize_t done = ReadAndWrite(in, out, buffer, at, at + BUFFER_SIZE);
        if (done <= 0) {
            return static_cast<int>(-done);
        }
        at += done;
        if (fstat(in, &now) != 0) {
            return errno;
        }
    }
    return 0;
}

}  // namespace

int FileData::Copy(int in, int out, const struct stat& from) {
    if (from.st_size == 0) {
        return CopyWithoutSize(in, out);
    }
    if (canShare) {
        if (ioctl(out, FICLONE, in) == 0) {
            return 0;
        }
        canShare = false;
    }
    const bool hasHoles = from.st_blocks * STAT_BLOCK < from.st_size;
    return hasHoles ? CopyBetweenHoles(in, out, from.st_size) : CopyPart(in, out, 0, from.st_size);
}

int FileData::CopyPart(int in, int out, off_t at, off_t end) {
    const bool isLarge = end - at > PIECE;
    if (end - at > BUFFER_SIZE) {
        (void)posix_fadvise(in, at, end - at, POSIX_FADV_SEQUENTIAL);  // a hint to read further ahead
    }
    while (at < end) {
        const off_t reached = CopyPiece(in, out, at, at + std::min(PIECE, end - at));
        if (reached <= at) {
            return reached < 0 ? static_cast<int>(-reached) : 0;
        }
        if (isLarge) {
            (void)posix_fadvise(in, at, reached - at, POSIX_FADV_DONTNEED);  // a hint
        }
        at = reached;
    }
    return 0;
}

off_t FileData::CopyPiece(int in, int out, off_t at, off_t end) {
    // For one buffer, reading and writing is faster than the kernel's pipe.
    const bool isSmall = end - at <= BUFFER_SIZE;
    off_t outAt = at;
    while (isInKernel && !isSmall && at < end) {
        const ssize_t done = copy_file_range(in, &at, out, &outAt, static_cast<std::size_t>(end - at), 0);
        if (done == 0) {
            break;  // the end of the file, or a file system that only supports read()
        }
        if (done < 0 && errno != EINTR) {
            if (!IsUnable(errno)) {
                return -errno;
            }
            isInKernel = false;
        }
    }
    return at < end ? CopyByReading(in, out, at, end) : at;
}

int FileData::CopyBetweenHoles(int in, int out, off_t size) {
    off_t at = 0;
    while (at < size) {
        const off_t data = lseek(in, at, SEEK_DATA);
        if (data < 0 && errno != ENXIO) {
            return CopyPart(in, out, at, size);  // the file system does not report holes
        }
        if (data < 0 || data >= size) {
            struct stat now {};  // only a hole is left, or the file has become shorter
            return fstat(in, &now) == 0 && ftruncate(out, std::min(size, now.st_size)) == 0 ? 0 : errno;
        }
        const off_t hole = lseek(in, data, SEEK_HOLE);
        at = hole > data ? std::min(hole, size) : size;
        if (const int error = CopyPart(in, out, data, at); error != 0) {
            return error;
        }
    }
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
