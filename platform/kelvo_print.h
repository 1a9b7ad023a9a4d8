// The platform log. KelvoPrint writes one line to the journal when standard error is the journal's, else one
// line to standard error. It may be called from any thread, keeps errno and never throws: a line that does not
// fit into memory is cut.
//
// Formats are checked while compiling: a conversion that does not suit its argument, one argument too many or
// too few do not build. The "%{public}" marker is the log's own syntax and is taken out on the way.
#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace TAVO::FileMigrateOrvane {

enum class LogLevel : int { Debug = 3, Info = 4, Warn = 5, Error = 6 };

/// Where a line comes from and where it goes; the journal keeps these as fields of their own.
struct LogSite {
    int type;
    LogLevel level;
    unsigned int domain;
    const char* tag;
    const char* function;
    int line;
};

namespace Detail {

/// One argument of a line: a text, never null, or a number, as its conversion says. Of an unsigned number the bits are
/// kept.
struct LogArgument {
    // NOLINTBEGIN(google-explicit-constructor): what is to be printed is given as it is.
    LogArgument(const std::string& value) noexcept : text(value.c_str()) {}
    LogArgument(const char* value) noexcept : text(value) {}
    template <std::integral Number>
    LogArgument(Number value) noexcept : number(static_cast<long>(value)) {}
    // NOLINTEND(google-explicit-constructor)

    std::string_view text;
    long number = 0;
};
using LogArguments = std::initializer_list<LogArgument>;

/// Formats and writes one line; the format has been checked against its arguments.
void WriteLogLine(const LogSite& site, const char* format, LogArguments arguments) noexcept;

/// Declared and never defined: reaching it while compiling is the error message.
void LogFormatDoesNotSuitItsArguments();

/// What an argument is printed as, and what a conversion prints: 's', 'd', 'u' (also for octal), 'D' (%ld), 'U'
/// (%lu); '?' and '!' where the log has no conversion for it.
template <class Arg>
consteval char KindOf() {
    using T = std::decay_t<Arg>;
    if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, const char*> || std::is_same_v<T, char*>) {
        return 's';
    } else if constexpr (std::is_same_v<T, int>) {
        return 'd';
    } else if constexpr (std::is_same_v<T, unsigned int>) {
        return 'u';
    } else if constexpr (std::is_same_v<T, long>) {
        return 'D';
    } else if constexpr (std::is_same_v<T, unsigned long>) {
        return 'U';
    } else {
        return '?';
    }
}

consteval char KindOf(char conversion, bool isLong) {
    switch (conversion) {
        case 's':
            return isLong ? '!' : 's';
        case 'd':
            return isLong ? 'D' : 'd';
        case 'u':
            return isLong ? 'U' : 'u';
        case 'o':
            return isLong ? '!' : 'u';
        default:
            return '!';
    }
}

}  // namespace Detail

/// A format and the place it stands in, made and checked while compiling.
///
/// Every line begins "[%{public}s:%{public}d] ", filled with the function's name and the source line; the log adds
/// this prefix, the texts do not repeat it. The function's name is the caller's own unless another is given:
/// LogError({"lstat %{public}s failed", "GetUidGid"}, path).
template <class... Args>
class KelvoFormat {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is to be written where a format is wanted.
    consteval KelvoFormat(const char* format, const char* caller = __builtin_FUNCTION(), int at = __builtin_LINE())
        : text(format), function(caller), line(at) {
        std::size_t argument = 0;
        for (; *format != '\0'; ++format) {
            if (*format == '%') {
                format = SkipMarker(format + 1);
                const bool isLong = *format == 'l';
                format += isLong ? 1 : 0;
                CheckConversion(argument++, *format, isLong);
            }
        }
        if (argument != sizeof...(Args)) {
            Detail::LogFormatDoesNotSuitItsArguments();
        }
    }

    const char* const text;
    const char* const function;
    const int line;

private:
    static consteval const char* SkipMarker(const char* format) {
        for (const char* marker = "{public}"; *marker != '\0'; ++marker, ++format) {
            if (*format != *marker) {
                Detail::LogFormatDoesNotSuitItsArguments();
            }
        }
        return format;
    }

    static consteval void CheckConversion(std::size_t argument, char conversion, bool isLong) {
        constexpr char kinds[] = {Detail::KindOf<Args>()..., '\0'};
        if (argument >= sizeof...(Args) || kinds[argument] != Detail::KindOf(conversion, isLong)) {
            Detail::LogFormatDoesNotSuitItsArguments();
        }
    }
};

/// Writes one line to the platform log.
/// @param type, domain, tag  the log's own classification of the writer
template <class... Args>
void KelvoPrint(int type, LogLevel level, unsigned int domain, const char* tag,
                const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    Detail::WriteLogLine(LogSite{type, level, domain, tag, format.function, format.line}, format.text, {args...});
}

}  // namespace TAVO::FileMigrateOrvane
