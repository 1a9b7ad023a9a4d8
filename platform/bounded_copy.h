// Bounded copy and fill with the semantics of C11 Annex K: the size of the destination follows the destination, the
// result is 0 or an error number, and a failed copy leaves an empty text instead of a truncated one. No state; any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TAVO::FileMigrateOrvane {

/// Larger sizes are refused, because they are most likely a negative number that was converted.
inline constexpr std::size_t RSIZE_LIMIT = SIZE_MAX >> 1;

/// Copies at most `count` characters of `src` and a terminating NUL.
/// @param destSize  bytes of `dest`
/// @return 0; EINVAL for a null pointer, an empty destination or overlapping objects; ERANGE for a size above
///         RSIZE_LIMIT or a text that does not fit with its NUL. After a failure `dest` is empty if it can be written.
int strncpy_s(char* dest, std::size_t destSize, const char* src, std::size_t count);

/// Sets `count` bytes to `value`. The store is never optimised away.
/// @param destSize  bytes of `dest`
/// @return 0; EINVAL for a null pointer; ERANGE for a size above RSIZE_LIMIT, or for a count above `destSize`, in which
///         case all of `dest` is set.
int memset_s(void* dest, std::size_t destSize, int value, std::size_t count);

}  // namespace TAVO::FileMigrateOrvane
