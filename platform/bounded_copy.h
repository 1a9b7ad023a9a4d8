// Bounded copy and fill with the semantics of C11 Annex K: the destination's size comes first, the result is 0 or
// an error number, and a failed copy leaves an empty text behind, never half a one. No state; any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TAVO::FileMigrateOrvane {

/// Sizes above this are taken for a negative number gone wrong, and refused.
inline constexpr std::size_t RSIZE_LIMIT = SIZE_MAX >> 1;

/// Copies at most `count` characters of `src`, ends the copy with a NUL.
/// @param destSize  bytes of `dest`
/// @return 0; EINVAL for a null pointer, an empty destination or overlapping objects; ERANGE for a size above
///         RSIZE_LIMIT or a text that does not fit with its NUL. `dest`, where it can be written, is then empty.
int strncpy_s(char* dest, std::size_t destSize, const char* src, std::size_t count);

/// Sets `count` bytes to `value`. The store is never optimised away.
/// @param destSize  bytes of `dest`
/// @return 0; EINVAL for a null pointer; ERANGE for a size above RSIZE_LIMIT or a count above `destSize`: all of
///         `dest` is then set, where its size can be believed.
int memset_s(void* dest, std::size_t destSize, int value, std::size_t count);

}  // namespace TAVO::FileMigrateOrvane
