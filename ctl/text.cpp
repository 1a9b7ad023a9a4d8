#include "text.h"

#include <unistd.h>

#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

void AppendEscaped(std::string& text, unsigned char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    text += "\\x";
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
}

/// Invisible characters that change the direction of the text after them. With them a name can look like another one.
bool ChangesDirection(wchar_t character) {
    return character == 0x61C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

const char* Sequence(Tone tone) {
    switch (tone) {
        case Tone::Plain:
            return "";
        case Tone::Strong:
            return "\x1b[1m";
        case Tone::Bad:
            return "\x1b[31m";
        case Tone::Warning:
            return "\x1b[33m";
        case Tone::Faint:
            return "\x1b[2m";
    }
    return "";
}

}  // namespace

std::string ErrorName(int errorNumber) {
    const char* name = strerrorname_np(errorNumber);
    return name != nullptr ? name : std::to_string(errorNumber);
}

std::string ErrorText(int errorNumber) {
    if (errorNumber == 0) {
        return "failed, and the daemon gave no error number";
    }
    const char* description = strerrordesc_np(errorNumber);
    return description != nullptr ? ErrorName(errorNumber) + " (" + description + ")"
                                  : "error number " + std::to_string(errorNumber);
}

std::string Printable(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::mbstate_t state{};
    while (!bytes.empty()) {
        wchar_t character = 0;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): unsafe only without an own state
        const std::size_t length = std::mbrtowc(&character, bytes.data(), bytes.size(), &state);
        // 0 means a NUL. A length above the rest means an invalid or incomplete sequence; it is taken byte by byte.
        const bool isCharacter = length > 0 && length <= bytes.size();
        const std::size_t taken = isCharacter ? length : 1;
        if (!isCharacter || std::iswprint(static_cast<std::wint_t>(character)) == 0 || ChangesDirection(character)) {
            for (const char byte : bytes.substr(0, taken)) {
                AppendEscaped(text, static_cast<unsigned char>(byte));
            }
            state = {};
        } else {
            text += character == L'\\' ? "\\\\" : bytes.substr(0, taken);
        }
        bytes.remove_prefix(taken);
    }
    return text;
}

std::string HumanSize(std::uint64_t kilobytes) {
    constexpr std::string_view units = "KMGTP";
    if (kilobytes == 0) {
        return "0";
    }
    auto value = static_cast<double>(kilobytes);
    std::size_t unit = 0;
    while (value >= 1023.5 && unit + 1 < units.size()) {  // 1024 would be shown as 1.0 of the next unit
        value /= 1024;
        ++unit;
    }
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), value < 9.95 ? "%.1f%c" : "%.0f%c", value, units[unit]);
    return text.data();
}

std::string TimeText(const std::string& times, char between) {
    if (times.size() != 14) {
        return times;
    }
    return times.substr(0, 4) + "-" + times.substr(4, 2) + "-" + times.substr(6, 2) + between + times.substr(8, 2) +
           ":" + times.substr(10, 2) + ":" + times.substr(12, 2);
}

bool MayColour(int fd) {
    const char* noColour = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): one thread
    const char* terminal = std::getenv("TERM");      // NOLINT(concurrency-mt-unsafe)
    return (noColour == nullptr || *noColour == '\0') && (terminal == nullptr || std::strcmp(terminal, "dumb") != 0) &&
           isatty(fd) == 1;
}

std::string Toned(Tone tone, std::string_view text, bool isColoured) {
    if (!isColoured || tone == Tone::Plain) {
        return std::string(text);
    }
    return std::string(Sequence(tone)).append(text).append("\x1b[0m");
}

void Complain(std::string_view what, std::string_view why) {
    (void)std::fprintf(stderr, "orvanectl: %.*s: %.*s\n", static_cast<int>(what.size()), what.data(),
                       static_cast<int>(why.size()), why.data());
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
