// The data of one regular file, from descriptor to descriptor: shared where the file system can, copied inside the
// kernel, or by reading and writing; holes stay holes, and what was read of a large file does not stay in the page
// cache. A FileData remembers between files what did not work; it belongs to one copy, so to one thread. Descriptors
// stay their caller's.
#pragma once

#include <sys/stat.h>

namespace TAVO::FileMigrateOrvane {

class FileData {
public:
    /// Copies what `in` holds, `from.st_size` bytes, to the empty file `out`. Of a file that has become shorter, what
    /// is left; of one that tells no size, as in /proc, what can be read.
    /// @return 0 or an error number; what was written then stays
    [[nodiscard]] int Copy(int in, int out, const struct stat& from);

private:
    [[nodiscard]] int CopyPart(int in, int out, off_t at, off_t end);
    /// @return how far it came, which is less than `end` where the file ends before; or a negative error number
    [[nodiscard]] off_t CopyPiece(int in, int out, off_t at, off_t end);
    [[nodiscard]] int CopyBetweenHoles(int in, int out, off_t size);

    bool canShare = true;    ///< the two file systems are one that can share blocks between files
    bool isInKernel = true;  ///< copy_file_range has served so far
};

}  // namespace TAVO::FileMigrateOrvane
