#include "bounded_copy.h"

#include <cerrno>
#include <cstring>
#include <functional>

namespace TAVO::FileMigrateOrvane {
namespace {

/// Whether writing `length` characters and a NUL to `dest` would overwrite characters of `src`.
bool Overlap(const char* dest, const char* src, std::size_t length) {
    // Only std::less defines an order for pointers into different objects.
    const std::less<> before;
    return before(dest, src + length) && before(src, dest + length + 1);
}

int CheckedCopy(char* dest, std::size_t destSize, const char* src, std::size_t count) {
    if (src == nullptr) {
        return EINVAL;
    }
    if (count > RSIZE_LIMIT) {
        return ERANGE;
    }
    // Stops reading as soon as the text is known to be too long.
    const std::size_t length = strnlen(src, count < destSize ? count : destSize);
    if (length == destSize) {
        return ERANGE;
    }
    if (Overlap(dest, src, length)) {
        return EINVAL;
    }
    std::memcpy(dest, src, length);
    dest[length] = '\0';
    return 0;
}

}  // namespace

int strncpy_s(char* dest, std::size_t destSize, const char* src, std::size_t count) {
    if (dest == nullptr || destSize == 0) {
        return EINVAL;
    }
    if (destSize > RSIZE_LIMIT) {
        return ERANGE;
    }
    const int result = CheckedCopy(dest, destSize, src, count);
    if (result != 0) {
        dest[0] = '\0';
    }
    return result;
}

int memset_s(void* dest, std::size_t destSize, int value, std::size_t count) {
    if (dest == nullptr) {
        return EINVAL;
    }
    if (destSize > RSIZE_LIMIT) {
        return ERANGE;
    }
    std::memset(dest, value, count < destSize ? count : destSize);
    // Makes the compiler assume that the bytes are read. Otherwise it drops the fill of an object that is not used
    // again.
    __asm__ volatile("" : : "r"(dest) : "memory");
    return count > destSize ? ERANGE : 0;
}

}  // namespace TAVO::FileMigrateOrvane
