// The platform log. KelvoPrint writes one line to the journal if standard error is connected to it and the line is for
// its reader (see LogKind), otherwise one line to standard error. If standard error is /dev/null, no line is composed.
// Any thread may call it. It keeps errno and never throws. If there is no memory for a long line, it cuts the line.
// It waits only for a busy journal, and only for a moment. If the log does not take a line, the line is lost, and a
// later line says how many were lost. A text of PATH_MAX bytes or more is cut to PATH_MAX bytes and ends with "[cut]".
//
// Formats are checked by the compiler: a conversion that does not match its argument, or a wrong number of arguments,
// does not build. The "%{public}" marker is the log's own syntax and is removed from the output.
#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace TAVO::FileMigrateOrvane {

enum class LogLevel : int { Debug = 3, Info = 4, Warn = 5, Error = 6 };

/// Who reads a line. Only the journal makes a difference; standard error gets all lines with the letter of their
/// level.
enum class LogKind {
    Event,    ///< for the operator; the level gives the priority
    Request,  ///< for the operator: a request that changes something, at priority "notice" whatever its level
    Routine,  ///< for somebody who debugs the daemon: sent only if asked for, at priority "debug"
};

/// What failed or was refused. The journal stores these in fields of the line, so that a search for
/// FAILURE_MESSAGE_ID finds the failures of all operations.
struct LogFailureFields {
    const char* operation;  ///< the type of the record of this failure, or the name of the step if it leaves no record
    int error;
    std::string_view source{};  ///< empty if there is none; `destination` too
    std::string_view destination{};
};

/// The catalog in packaging/ explains the messages with this number.
inline constexpr std::string_view FAILURE_MESSAGE_ID = "71b641936aa142ccbf26d4524c5dc02c";

struct LogMark {
    // NOLINTNEXTLINE(google-explicit-constructor): most callers give only the level.
    constexpr LogMark(LogLevel lineLevel, LogKind lineKind = LogKind::Event, const LogFailureFields* fields = nullptr)
        : level(lineLevel), kind(lineKind), failure(fields) {}

    LogLevel level;
    LogKind kind;
    const LogFailureFields* failure;  ///< null for a line that does not report a failure of a request
};

/// The origin and the classification of a line. The journal stores these in fields.
struct LogSite {
    int type;
    LogMark mark;
    unsigned int domain;
    const char* tag;
    const char* function;
    int line;
};

namespace Detail {

/// One argument of a line, a text or a number depending on its conversion. A text is never null. An unsigned number
/// keeps its bits.
struct LogArgument {
    // NOLINTBEGIN(google-explicit-constructor): callers pass plain values.
    LogArgument(const std::string& value) noexcept : text(value.c_str()) {}
    LogArgument(const char* value) noexcept : text(value) {}
    template <std::integral Number>
    LogArgument(Number value) noexcept : number(static_cast<long>(value)) {}
    // NOLINTEND(google-explicit-constructor)

    std::string_view text;
    long number = 0;
};
using LogArguments = std::initializer_list<LogArgument>;

/// Formats and writes one line. The compiler has checked the format against the arguments.
void WriteLogLine(const LogSite& site, const char* format, LogArguments arguments) noexcept;

/// Declared but never defined. A call in a constant expression stops the compiler, and the name is the error message.
void LogFormatDoesNotSuitItsArguments();

/// The kind of an argument, and the kind that a conversion prints: 's', 'd', 'u' (also for octal), 'D' (%ld), 'U'
/// (%lu). An argument or conversion that the log does not know has the kind '?' or '!', which never match.
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

/// A format and its place in the source, checked by the compiler.
///
/// Every line begins with "[%{public}s:%{public}d] ", the name of the function and the source line. The log adds this
/// prefix; the texts do not repeat it. The function is the caller unless another name is given:
/// LogError({"lstat %{public}s failed", "GetUidGid"}, path).
template <class... Args>
class KelvoFormat {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): callers pass a string literal.
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
/// @param type, domain, tag  the platform's classification of the program
template <class... Args>
void KelvoPrint(int type, LogMark mark, unsigned int domain, const char* tag,
                const KelvoFormat<std::type_identity_t<Args>...>& format, const Args&... args) noexcept {
    Detail::WriteLogLine(LogSite{type, mark, domain, tag, format.function, format.line}, format.text, {args...});
}

}  // namespace TAVO::FileMigrateOrvane
