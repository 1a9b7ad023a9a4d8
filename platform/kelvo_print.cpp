#include "kelvo_print.h"

#include <fcntl.h>
#include <linux/major.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <ctime>
#include <string_view>

#include "journal.h"
#include "log_text.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Detail {
namespace {

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
void AppendTimeLevelAndTag(LogText& line, const LogSite& site) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    line.Append(LocalTime(now.tv_sec));
    const auto milliseconds = static_cast<int>(now.tv_nsec / 1000000);
    const auto digit = [=](int unit) { return static_cast<char>('0' + milliseconds / unit % 10); };
    const char rest[] = {'.', digit(100), digit(10), digit(1), ' ', LetterOf(site.mark.level), ' '};
    line.Append({rest, sizeof(rest)});
    line.Append(site.tag);
    line.Append(": ");
}

/// "[function:120] "
void AppendPlace(LogText& line, const LogSite& site) {
    line.Append("[");
    line.Append(site.function);
    line.Append(":");
    line.AppendNumber(site.line);
    line.Append("] ");
}

/// @param format  the text after a "%{public}", which begins with the conversion
/// @return the text after the conversion
const char* AppendArgument(LogText& line, const char* format, const LogArgument& argument) {
    format += *format == 'l' ? 1 : 0;
    switch (*format) {
        case 's':
            line.AppendPath(argument.text);
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

void AppendFormatted(LogText& line, const char* format, LogArguments arguments) {
    constexpr std::size_t marker = sizeof("%{public}") - 1;
    for (const LogArgument& argument : arguments) {
        const char* conversion = std::strchr(format, '%');
        line.Append({format, conversion});
        format = AppendArgument(line, conversion + marker, argument);
    }
    line.Append(format);
}

constexpr unsigned int NULL_MINOR = 3;  // of /dev/null, see null(4)

/// Standard error as the log uses it.
struct StandardError {
    int fd = STDERR_FILENO;
    bool isSocket = false;
    bool isNull = false;  ///< /dev/null
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
    result.isNull = S_ISCHR(st.st_mode) && st.st_rdev == makedev(MEM_MAJOR, NULL_MINOR);
    if (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode)) {
        const int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        result.fd = own >= 0 ? own : STDERR_FILENO;
    }
    return result;
}

const StandardError& GetStandardError() {
    static const StandardError opened = OpenStandardError();
    return opened;
}

bool WriteToStandardError(std::string_view line) {
    const StandardError& to = GetStandardError();
    const ssize_t written = to.isSocket ? send(to.fd, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                                        : write(to.fd, line.data(), line.size());
    return written >= 0;
}

/// @return whether the log took the line
bool TryWriteLogLine(const LogSite& site, const char* format, LogArguments arguments) {
    LogText line;
    if (!IsLoggedToJournal()) {
        AppendTimeLevelAndTag(line, site);
    }
    AppendPlace(line, site);
    AppendFormatted(line, format, arguments);
    line.EscapeControls();
    return IsLoggedToJournal() ? SendToJournal(site, line.View()) : WriteToStandardError(line.WithNewline());
}

std::atomic<unsigned long> g_lostLines{0};  ///< lines that the log did not take and has not reported yet

}  // namespace

void WriteLogLine(const LogSite& site, const char* format, LogArguments arguments) noexcept {
    const ErrnoKeeper keeper;
    if (IsLoggedToJournal() ? !IsForJournal(site.mark.kind) : GetStandardError().isNull) {
        return;  // nobody will read it
    }
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
