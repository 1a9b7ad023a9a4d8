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
#include <ctime>
#include <new>
#include <string>

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
    return stream == std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
}

bool UseJournal() {
    static const bool useJournal = StandardErrorIsJournal();
    return useJournal;
}

char LetterOf(LogLevel level) {
    switch (level) {
        case LogLevel::Debug:
            return 'D';
        case LogLevel::Info:
            return 'I';
        case LogLevel::Warn:
            return 'W';
        case LogLevel::Error:
            break;
    }
    return 'E';
}

int PriorityOf(LogLevel level) {
    switch (level) {
        case LogLevel::Debug:
            return LOG_DEBUG;
        case LogLevel::Info:
            return LOG_INFO;
        case LogLevel::Warn:
            return LOG_WARNING;
        case LogLevel::Error:
            break;
    }
    return LOG_ERR;
}

/// "MESSAGE=" for the journal, which keeps time, level and tag as fields; else "11-21 10:15:30.250 E Tag: ".
std::size_t FormatHead(const LogSite& site, char* head, std::size_t size) {
    if (UseJournal()) {
        return static_cast<std::size_t>(std::snprintf(head, size, "MESSAGE="));
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::size_t length = std::strftime(head, size, "%m-%d %H:%M:%S", &local);
    length += static_cast<std::size_t>(std::snprintf(
        head + length, size - length, ".%03ld %c %s: ", now.tv_nsec / 1000000, LetterOf(site.level), site.tag));
    return length;
}

bool IsControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

/// Control characters can only come from a client's text; written as they are they could forge a line.
std::string Escaped(const char* text, std::size_t length) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string result;
    result.reserve(length + 64);
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (IsControl(text[i])) {
            result += {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
        } else {
            result += text[i];
        }
    }
    return result;
}

void SendToJournal(const LogSite& site, const char* message, std::size_t length) {
    const std::array<std::string, 6> fields = {"PRIORITY=" + std::to_string(PriorityOf(site.level)),
                                               std::string("SYSLOG_IDENTIFIER=") + site.tag,
                                               "LOG_DOMAIN=" + std::to_string(site.domain),
                                               "LOG_TYPE=" + std::to_string(site.type),
                                               std::string("CODE_FUNC=") + site.function,
                                               "CODE_LINE=" + std::to_string(site.line)};
    std::array<iovec, fields.size() + 1> parts{};
    parts[0] = {const_cast<char*>(message), length};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        parts[i + 1] = {const_cast<char*>(fields[i].data()), fields[i].size()};
    }
    sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
}

/// Hands over a whole line; there is room for one more byte behind it.
void Deliver(const LogSite& site, char* line, std::size_t length) {
    if (UseJournal()) {
        SendToJournal(site, line, length);
        return;
    }
    line[length] = '\n';
    // A log line that cannot be written is lost: there is nowhere left to report it.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, length + 1);
}

void DeliverEscaped(const LogSite& site, char* line, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        if (IsControl(line[i])) {
            std::string escaped = Escaped(line, length);
            escaped += '\n';
            Deliver(site, escaped.data(), escaped.size() - 1);
            return;
        }
    }
    Deliver(site, line, length);
}

/// Appends the text behind the head in `line`, which takes `size` bytes; returns the length it wanted in all.
std::size_t FormatText(char* line, std::size_t size, std::size_t head, const char* format, va_list arguments) {
    va_list copy;
    va_copy(copy, arguments);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // KelvoFormat has checked it against the arguments
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): copied from an argument that is.
    const int length = std::vsnprintf(line + head, size - head, format, copy);
#pragma GCC diagnostic pop
    va_end(copy);
    return head + static_cast<std::size_t>(length < 0 ? 0 : length);
}

}  // namespace

void WriteLogLine(const LogSite& site, const char* format, ...) {
    const ErrnoKeeper keeper;
    va_list arguments;
    va_start(arguments, format);
    char usual[USUAL_LINE];
    const std::size_t head = FormatHead(site, usual, sizeof(usual));
    std::size_t length = FormatText(usual, sizeof(usual), head, format, arguments);
    try {
        if (length < sizeof(usual)) {
            DeliverEscaped(site, usual, length);
        } else {
            std::string large(usual, head);
            large.resize(length + 1);
            length = FormatText(large.data(), large.size(), head, format, arguments);
            DeliverEscaped(site, large.data(), length);
        }
    } catch (const std::bad_alloc&) {
        Deliver(site, usual, std::min(length, sizeof(usual) - 1));
    }
    va_end(arguments);
}

}  // namespace TAVO::FileMigrateOrvane::Detail
