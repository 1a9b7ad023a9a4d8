#include "kelvo_print.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <climits>
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

    /// The text with a newline at its end.
    std::string_view WithNewline() {
        text[length] = '\n';
        return {text, length + 1};
    }

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

/// Appends a text, cut to the length of the longest path. The texts of a request are shorter, but the path of an entry
/// deep in a tree can be longer.
void AppendText(Line& line, std::string_view text) {
    constexpr std::string_view cutMark = "[cut]";
    if (text.size() < PATH_MAX) {
        line.Append(text);
        return;
    }
    line.Append(text.substr(0, PATH_MAX - cutMark.size()));
    line.Append(cutMark);
}

/// @param format  the text after a "%{public}", which begins with the conversion
/// @return the text after the conversion
const char* AppendArgument(Line& line, const char* format, const LogArgument& argument) {
    format += *format == 'l' ? 1 : 0;
    switch (*format) {
        case 's':
            AppendText(line, argument.text);
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

/// Standard error as the log uses it.
struct StandardError {
    int fd = STDERR_FILENO;
    bool isSocket = false;
};

/// A pipe or a terminal is opened once more, so that writes to it do not wait. Standard error itself is shared with
/// other processes, which may expect their writes to wait. Writes to a regular file do not wait for a reader.
StandardError OpenStandardError() {
    StandardError result;
    struct stat st {};
    if (fstat(STDERR_FILENO, &st) != 0) {
        return result;
    }
    result.isSocket = S_ISSOCK(st.st_mode);
    if (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode)) {
        const int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        result.fd = own >= 0 ? own : STDERR_FILENO;
    }
    return result;
}

bool WriteToStandardError(std::string_view line) {
    static const StandardError to = OpenStandardError();
    const ssize_t written = to.isSocket ? send(to.fd, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                                        : write(to.fd, line.data(), line.size());
    return written >= 0;
}

/// Sends an entry in the journal's native protocol, one datagram of "FIELD=value" lines. The values contain no newline.
/// libsystemd's functions are not used because they wait for a journal that is busy or has stopped.
/// @param message  "MESSAGE=" and the text, with a newline
bool SendToJournal(const LogSite& site, std::string_view message) {
    static const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    static const sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    char fields[256];
    const int length =
        std::snprintf(fields, sizeof(fields),
                      "PRIORITY=%d\nSYSLOG_IDENTIFIER=%s\nLOG_DOMAIN=%u\nLOG_TYPE=%d\nCODE_FUNC=%s\nCODE_LINE=%d\n",
                      ShownAs(site.level).priority, site.tag, site.domain, site.type, site.function, site.line);
    const std::size_t used = std::min(static_cast<std::size_t>(length), sizeof(fields) - 1);
    iovec parts[] = {{const_cast<char*>(message.data()), message.size()}, {fields, used}};
    msghdr entry{};
    entry.msg_name = const_cast<sockaddr_un*>(&address);
    entry.msg_namelen = sizeof(address);
    entry.msg_iov = parts;
    entry.msg_iovlen = std::size(parts);
    return sendmsg(fd, &entry, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

/// @return whether the log took the line
bool TryWriteLogLine(const LogSite& site, const char* format, LogArguments arguments) {
    Line line;
    if (UseJournal()) {
        line.Append("MESSAGE=");
    } else {
        AppendTimeLevelAndTag(line, site);
    }
    AppendPlace(line, site);
    AppendFormatted(line, format, arguments);
    line.EscapeControls();
    return UseJournal() ? SendToJournal(site, line.WithNewline()) : WriteToStandardError(line.WithNewline());
}

std::atomic<unsigned long> g_lostLines{0};  ///< lines that the log did not take and has not reported yet

}  // namespace

void WriteLogLine(const LogSite& site, const char* format, LogArguments arguments) noexcept {
    const ErrnoKeeper keeper;
    const unsigned long lost = g_lostLines == 0 ? 0 : g_lostLines.exchange(0);
    if (lost > 0) {
        const LogSite report{site.type, LogLevel::Warn, site.domain, site.tag, __func__, __LINE__};
        if (!TryWriteLogLine(report, "%{public}lu lines are missing here because the log did not take them", {lost})) {
            g_lostLines += lost;
        }
    }
    if (!TryWriteLogLine(site, format, arguments)) {
        ++g_lostLines;
    }
}

}  // namespace TAVO::FileMigrateOrvane::Detail
