#define SD_JOURNAL_SUPPRESS_LOCATION  // a line carries its own place

#include "kelvo_print.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Detail {
namespace {

/// Bytes that a line may have before it costs an allocation; all but lines with very long paths fit.
constexpr std::size_t USUAL_LINE = 2048;

/// Whether standard error is connected to the journal: $JOURNAL_STREAM holds "device:inode" of the stream that
/// init connected, see systemd.exec(5).
bool StandardErrorIsJournal() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): asked once, and the environment never changes.
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

/// How a level is shown: the letter on standard error, the journal's priority.
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

/// A line in the making. It grows by allocation; without memory it is cut.
class Line {
public:
    void Append(const char* format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        const std::size_t wanted = Print(format, arguments);
        if (length + wanted >= capacity && Reserve(length + wanted + 2)) {
            Print(format, again);
        }
        va_end(again);
        length = std::min(length + wanted, capacity - 1);
    }

    [[gnu::format(printf, 2, 3)]] void Append(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        Append(format, arguments);
        va_end(arguments);
    }

    /// Writes control characters as \x0a: they can only come from a client's text, and could forge a line.
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
        // A log line that cannot be written is lost: there is nowhere left to report it.
        [[maybe_unused]] const ssize_t written = write(fd, text, length + 1);
    }

    iovec AsVector() { return {text, length}; }

private:
    /// Prints behind what is there, as far as there is room; returns the length it wanted.
    std::size_t Print(const char* format, va_list arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // KelvoFormat has checked it against the arguments
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers started or copied it.
        const int wanted = std::vsnprintf(text + length, capacity - length, format, arguments);
#pragma GCC diagnostic pop
        return static_cast<std::size_t>(std::max(wanted, 0));
    }

    /// Makes room for `size` bytes; false, with the line as it was, where there is no memory.
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

/// "11-21 10:15:30". Each thread keeps the text of the second that it is in: the calendar costs as much as the rest of
/// a line.
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
    line.Append("%s.%03ld %c %s: ", LocalTime(now.tv_sec), now.tv_nsec / 1000000, ShownAs(site.level).letter, site.tag);
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

/// Copies a format without its "{public}" markers.
void StripMarkers(const char* format, char* plain) {
    constexpr std::size_t marker = sizeof("{public}") - 1;
    while ((*plain++ = *format) != '\0') {
        format += *format == '%' ? 1 + marker : 1;
    }
}

}  // namespace

void WriteLogLine(const LogSite& site, const char* format, ...) noexcept {
    const ErrnoKeeper keeper;
    char plain[MAX_FORMAT + 1];
    StripMarkers(format, plain);
    Line line;
    if (UseJournal()) {
        line.Append("MESSAGE=");
    } else {
        AppendTimeLevelAndTag(line, site);
    }
    line.Append("[%s:%d] ", site.function, site.line);
    va_list arguments;
    va_start(arguments, format);
    line.Append(plain, arguments);
    va_end(arguments);
    line.EscapeControls();
    if (UseJournal()) {
        SendToJournal(site, line);
    } else {
        line.WriteTo(STDERR_FILENO);
    }
}

}  // namespace TAVO::FileMigrateOrvane::Detail
