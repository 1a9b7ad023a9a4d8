#include "journal.h"

#include <endian.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace TAVO::FileMigrateOrvane::Detail {
namespace {

/// How long a line waits for a busy journal, so that the journal stores a whole burst. A journal that has stopped costs
/// one wait: until it takes a line again, lines that it does not take at once are lost.
constexpr timeval JOURNAL_PATIENCE{0, 100'000};
/// Room for lines that the journal has not read yet, in bytes.
constexpr int SEND_BUFFER = 1 << 20;

/// $JOURNAL_STREAM contains "device:inode" of the stream that init connected, see systemd.exec(5).
bool IsStandardErrorTheStream() {
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

bool IsEverythingAskedFor() {
    const char* value = std::getenv("FILE_MIGRATE_LOG_ALL");  // NOLINT(concurrency-mt-unsafe): as above
    return value != nullptr && std::strcmp(value, "1") == 0;
}

/// Many lines that report no failure have the level of an error. In the journal, only failures have that priority.
int PriorityOf(const LogSite& site) {
    if (site.mark.kind != LogKind::Event) {
        return site.mark.kind == LogKind::Request ? LOG_NOTICE : LOG_DEBUG;
    }
    switch (site.mark.level) {
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

/// @param name  the field's name and "=", except in AppendPathField()
void AppendField(LogText& fields, std::string_view name, std::string_view value) {
    fields.Append(name);
    fields.Append(value);
    fields.Append("\n");
}

void AppendField(LogText& fields, std::string_view name, std::int64_t value) {
    fields.Append(name);
    fields.AppendNumber(value);
    fields.Append("\n");
}

void AppendFields(LogText& fields, const LogSite& site) {
    AppendField(fields, "PRIORITY=", PriorityOf(site));
    AppendField(fields, "SYSLOG_IDENTIFIER=", site.tag);
    AppendField(fields, "LOG_DOMAIN=", site.domain);
    AppendField(fields, "LOG_TYPE=", site.type);
    AppendField(fields, "LOG_LEVEL=", static_cast<int>(site.mark.level));
    AppendField(fields, "CODE_FUNC=", site.function);
    AppendField(fields, "CODE_LINE=", site.line);
}

/// A path can contain a newline, so the length precedes it. An empty one is left out.
void AppendPathField(LogText& fields, std::string_view name, std::string_view path) {
    if (path.empty()) {
        return;
    }
    LogText value;
    value.AppendPath(path);
    const std::uint64_t size = htole64(value.View().size());
    AppendField(fields, name, "");
    fields.Append({reinterpret_cast<const char*>(&size), sizeof(size)});
    AppendField(fields, "", value.View());
}

void AppendFailure(LogText& fields, const LogFailureFields& failure) {
    AppendField(fields, "MESSAGE_ID=", FAILURE_MESSAGE_ID);
    AppendField(fields, "OPERATION=", failure.operation);
    AppendField(fields, "ERRNO=", failure.error);
    AppendPathField(fields, "SOURCE", failure.source);
    AppendPathField(fields, "DESTINATION", failure.destination);
}

/// A socket on which a send waits for a busy journal, but not longer than JOURNAL_PATIENCE.
int OpenSocket() {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof(SEND_BUFFER));  // the kernel may give less
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &JOURNAL_PATIENCE, sizeof(JOURNAL_PATIENCE));  // cannot fail
    return fd;
}

}  // namespace

bool IsLoggedToJournal() {
    static const bool isStream = IsStandardErrorTheStream();
    return isStream;
}

bool IsForJournal(LogKind kind) {
    static const bool isEverythingAskedFor = IsEverythingAskedFor();
    return kind != LogKind::Routine || isEverythingAskedFor;
}

// The entry is one datagram of "FIELD=value" lines, the journal's native protocol. libsystemd's functions are not used
// because they wait without a limit.
bool SendToJournal(const LogSite& site, std::string_view message) {
    static const int fd = OpenSocket();
    static std::atomic<bool> isStuck = false;  ///< the journal did not take the last line
    static const sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
    LogText fields;
    AppendField(fields, "MESSAGE=", message);
    AppendFields(fields, site);
    if (site.mark.failure != nullptr) {
        AppendFailure(fields, *site.mark.failure);
    }
    const std::string_view bytes = fields.View();
    const bool isSent = sendto(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | (isStuck ? MSG_DONTWAIT : 0),
                               reinterpret_cast<const sockaddr*>(&address), sizeof(address)) >= 0;
    isStuck = !isSent;
    return isSent;
}

}  // namespace TAVO::FileMigrateOrvane::Detail
