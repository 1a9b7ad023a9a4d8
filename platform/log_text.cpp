#include "log_text.h"

#include <climits>
#include <new>
#include <utility>

namespace TAVO::FileMigrateOrvane::Detail {
namespace {

bool IsControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

}  // namespace

void LogText::AppendPath(std::string_view path) {
    constexpr std::string_view cutMark = "[cut]";
    if (path.size() < PATH_MAX) {
        Append(path);
        return;
    }
    Append(path.substr(0, PATH_MAX - cutMark.size()));
    Append(cutMark);
}

void LogText::EscapeControls() {
    static constexpr char digits[] = "0123456789abcdef";
    const auto count = static_cast<std::size_t>(std::count_if(text, text + length, IsControl));
    if (count == 0) {
        return;
    }
    if (!Reserve(length + 3 * count + 2)) {
        std::replace_if(text, text + length, IsControl, '?');
        return;
    }
    char* to = text + length + 3 * count;
    for (const char* from = text + length; from != text;) {
        const char c = *--from;
        if (IsControl(c)) {
            const auto byte = static_cast<unsigned char>(c);
            to -= 4;
            const char escape[] = {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
            std::memcpy(to, escape, sizeof(escape));
        } else {
            *--to = c;
        }
    }
    length += 3 * count;
}

bool LogText::Reserve(std::size_t size) {
    if (size <= capacity) {
        return true;
    }
    std::unique_ptr<char[]> grown(new (std::nothrow) char[size]);
    if (grown == nullptr) {
        return false;
    }
    std::memcpy(grown.get(), text, length);
    large = std::move(grown);
    text = large.get();
    capacity = size;
    return true;
}

}  // namespace TAVO::FileMigrateOrvane::Detail
