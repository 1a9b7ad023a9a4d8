// Copies the data of one regular file between descriptors: by sharing blocks if the file system can, otherwise inside
// the kernel, otherwise by reading and writing. Holes stay holes, and the data of a large file does not stay in the
// page cache. A FileData remembers which ways did not work for earlier files. It belongs to one request, whose threads
// may use it at the same time. The caller keeps the descriptors.
#pragma once

#include <sys/stat.h>

#include <atomic>

namespace TAVO::FileMigrateOrvane {

class FileData {
public:
    /// Copies the `from.st_size` bytes of `in` to the empty file `out`. If the file has become shorter, copies what is
    /// left; if it shows no size, as files in /proc do, copies what can be read.
    /// @return 0 or an error number; what was written before the error stays
    [[nodiscard]] int Copy(int in, int out, const struct stat& from);

private:
    [[nodiscard]] int CopyPart(int in, int out, off_t at, off_t end);
    /// @return the offset it reached, which is below `end` if the file ends earlier; or a negative error number
    [[nodiscard]] off_t CopyPiece(int in, int out, off_t at, off_t end);
    [[nodiscard]] int CopyBetweenHoles(int in, int out, off_t size);

    /// Source and destination are on one file system that can share blocks between files.
    std::atomic<bool> canShare{true};
    std::atomic<bool> isInKernel{true};  ///< copy_file_range has worked so far
};

}  // namespace TAVO::FileMigrateOrvane
