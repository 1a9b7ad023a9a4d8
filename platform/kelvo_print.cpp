#define SD_JOURNAL_SUPPRESS_LOCATION  // the fields of a line contain its place

#include "kelvo_print.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>
#include <string_view>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Detail {
namespace {

/// Bytes of a line that need no allocation. Only lines with very long paths are longer.
constexpr std::size_t USUAL_LINE = 2048;

/// Whether standard error is connected to the journal. $JOURNAL_STREAM contains "device:inode" of the stream that init
/// connected, see systemd.exec(5).
bool StandardErrorIsJournal() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment never changes.
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat st {};
    if (stream == nullptr || fstat(STDERR_FILENO, &st) != 0) {
        return false;
    }
    char own[64];
    (void)std::snprintf(own, sizeof(own), "%lu:%lu", st.st_dev, st.st_ino);
    return std::strcmp(stream, own) == 0;
}

bool UseJournal() {
    static const bool useJournal = StandardErrorIsJournal();
    return useJournal;
}

/// A level's letter on standard error and its priority in the journal.
struct Shown {
    char letter;
    int priority;
};

Shown ShownAs(LogLevel level) {
    switch (level) {
        case LogLevel::Debug:
            return {'D', LOG_DEBUG};
        case LogLevel::Info:
            return {'I', LOG_INFO};
        case LogLevel::Warn:
            return {'W', LOG_WARNING};
        case LogLevel::Error:
            break;
    }
    return {'E', LOG_ERR};
}

bool IsControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

/// A line that is being formatted. It grows by allocation; if memory runs out, it is cut.
class Line {
public:
    void Append(std::string_view piece) {
        const std::size_t wanted = length + piece.size() + 1;  // one byte is reserved for the end of the line
        if (wanted > capacity) {
            Reserve(std::max(wanted, 2 * capacity));
        }
        const std::size_t fitting = std::min(piece.size(), capacity - length - 1);
        std::memcpy(text + length, piece.data(), fitting);
        length += fitting;
    }

    template <class Number>
    void AppendNumber(Number number, int base = 10) {
        char digits[32];
        Append({digits, std::to_chars(std::begin(digits), std::end(digits), number, base).ptr});
    }

    /// Replaces control characters by "\x0a" and the like. They can only come from a client's text and could forge a
    /// line.
    void EscapeControls() {
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

    void WriteTo(int fd) {
        text[length] = '\n';
        // A log line that cannot be written is lost, because there is no other place to report it.
        [[maybe_unused]] const ssize_t written = write(fd, text, length + 1);
    }

    iovec AsVector() { return {text, length}; }

private:
    /// Makes room for `size` bytes. False, with the line unchanged, if there is no memory.
    bool Reserve(std::size_t size) {
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

    char usual[USUAL_LINE];
    std::unique_ptr<char[]> large;
    char* text = usual;
    std::size_t capacity = sizeof(usual);
    std::size_t length = 0;
};

/// "11-21 10:15:30". Each thread keeps the text of the current second, because the conversion costs as much as the rest
/// of a line.
const char* LocalTime(time_t second) {
    thread_local time_t shown = -1;
    thread_local char text[] = "mm-dd hh:mm:ss";
    if (second != shown) {
        tm local{};
        localtime_r(&second, &local);
        (void)std::strftime(text, sizeof(text), "%m-%d %H:%M:%S", &local);
        shown = second;
    }
    return text;
}

/// "11-21 10:15:30.250 E Tag: "
void AppendTimeLevelAndTag(Line& line, const LogSite& site) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    line.Append(LocalTime(now.tv_sec));
    const auto milliseconds = static_cast<int>(now.tv_nsec / 1000000);
    const auto digit = [=](int unit) { return static_cast<char>('0' + milliseconds / unit % 10); };
    const char rest[] = {'.', digit(100), digit(10), digit(1), ' ', ShownAs(site.level).letter, ' '};
    line.Append({rest, sizeof(rest)});
    line.Append(site.tag);
    line.Append(": ");
}

/// "[function:120] "
void AppendPlace(Line& line, const LogSite& site) {
    line.Append("[");
    line.Append(site.function);
    line.Append(":");
    line.AppendNumber(site.line);
    line.Append("] ");
}

/// @param format  the text after a "%{public}", which begins with the conversion
/// @return the text after the conversion
const char* AppendArgument(Line& line, const char* format, const LogArgument& argument) {
    format += *format == 'l' ? 1 : 0;
    switch (*format) {
        case 's':
            line.Append(argument.text);
            break;
        case 'd':
            line.AppendNumber(argument.number);
            break;
        default:
            line.AppendNumber(static_cast<unsigned long>(argument.number), *format == 'o' ? 8 : 10);
            break;
    }
    return format + 1;
}

void AppendFormatted(Line& line, const char* format, LogArguments arguments) {
    constexpr std::size_t marker = sizeof("%{public}") - 1;
    for (const LogArgument& argument : arguments) {
        const char* conversion = std::strchr(format, '%');
        line.Append({format, conversion});
        format = AppendArgument(line, conversion + marker, argument);
    }
    line.Append(format);
}

void SendToJournal(const LogSite& site, Line& message) {
    char fields[6][96];
    (void)std::snprintf(fields[0], sizeof(fields[0]), "PRIORITY=%d", ShownAs(site.level).priority);
    (void)std::snprintf(fields[1], sizeof(fields[1]), "SYSLOG_IDENTIFIER=%s", site.tag);
    (void)std::snprintf(fields[2], sizeof(fields[2]), "LOG_DOMAIN=%u", site.domain);
    (void)std::snprintf(fields[3], sizeof(fields[3]), "LOG_TYPE=%d", site.type);
    (void)std::snprintf(fields[4], sizeof(fields[4]), "CODE_FUNC=%s", site.function);
    (void)std::snprintf(fields[5], sizeof(fields[5]), "CODE_LINE=%d", site.line);
    std::array<iovec, std::size(fields) + 1> parts{message.AsVector()};
    for (std::size_t i = 0; i < std::size(fields); ++i) {
        parts[i + 1] = {fields[i], std::strlen(fields[i])};
    }
    (void)sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
}

}  // namespace

void WriteLogLine(const LogSite& site, const char* format, LogArguments arguments) noexcept {
    const ErrnoKeeper keeper;
    Line line;
    if (UseJournal()) {
        line.Append("MESSAGE=");
    } else {
        AppendTimeLevelAndTag(line, site);
    }
    AppendPlace(line, site);
    AppendFormatted(line, format, arguments);
    line.EscapeControls();
    if (UseJournal()) {
        SendToJournal(site, line);
    } else {
        line.WriteTo(STDERR_FILENO);
    }
}

}  // namespace TAVO::FileMigrateOrvane::Detail
