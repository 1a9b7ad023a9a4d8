#include "reply.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "bounded_copy.h"
#include "file_migrate_orvane.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

using Clock = std::chrono::steady_clock;

/// The longest time that one send may wait for the client to read.
constexpr std::chrono::seconds SEND_LIMIT{3};
/// The longest time that all sends of a reply may wait, plus a second for each BYTES_PER_SECOND that were sent. A
/// client that reads at this rate receives everything; one that reads a package from time to time does not hold a
/// worker for long.
constexpr std::chrono::seconds REPLY_LIMIT{5};
constexpr std::size_t BYTES_PER_SECOND = std::size_t{128} * 1024;

/// Sends records to one client within the time limits.
class Sender {
public:
    explicit Sender(int connection) : fd(connection) {}

    /// Sends a record, which a local stream socket takes as a whole or not at all. It goes on after a signal or after
    /// the process was stopped.
    /// @return as from send(): -1 with EAGAIN if the client did not read in time
    int Send(const void* record, std::size_t size) {
        Clock::duration left = std::min<Clock::duration>(
            SEND_LIMIT, REPLY_LIMIT + std::chrono::seconds(sentBytes / BYTES_PER_SECOND) - waited);
        for (;;) {
            const ssize_t sent = send(fd, record, size, MSG_DONTWAIT);
            if (sent >= 0) {
                sentBytes += static_cast<std::size_t>(sent);
                return static_cast<int>(sent);
            }
            if (errno != EINTR && (errno != EAGAIN || !WaitForRoom(left))) {
                return -1;
            }
        }
    }

private:
    /// Waits until the socket has room. False, with EAGAIN, if no time is left.
    /// @param left  the time left for this record; reduced by the wait
    bool WaitForRoom(Clock::duration& left) {
        const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
        if (milliseconds <= 0) {
            errno = EAGAIN;
            return false;
        }
        const Clock::time_point begin = Clock::now();
        pollfd room{fd, POLLOUT, 0};
        (void)poll(&room, 1, static_cast<int>(milliseconds));  // the next send finds out what happened
        const Clock::duration passed = Clock::now() - begin;
        waited += passed;
        left -= passed;
        return true;
    }

    const int fd;
    Clock::duration waited{};
    std::size_t sentBytes = 0;
};

/// Ends a connection whose client has lost a part of a reply. The client sees the end of the stream instead of a gap
/// that nothing shows. The event loop sees the hang-up and drops the connection.
void EndStream(int fd) {
    (void)shutdown(fd, SHUT_RDWR);  // fails if the client has hung up
}

}  // namespace

std::vector<std::string_view> PackStrings(const StringList& strs) {
    std::vector<std::string_view> packages;
    // The current package in the joined text, including its last "/".
    std::size_t begin = 0;
    std::size_t end = 0;
    const auto closePackage = [&] {
        if (begin < end) {
            packages.push_back(strs.Joined().substr(begin, end - begin - 1));
            begin = end;
        }
    };
    for (const std::size_t next : strs.Ends()) {
        if (next - begin > PACKAGE_WIDTH) {
            closePackage();
        }
        end = next;
    }
    closePackage();
    return packages;
}

void SendResMsg(int fd, std::int32_t result, const extraInfo& info) {
    const std::vector<std::string_view> packages = PackStrings(info.strs);
    const auto pkgNum = static_cast<std::int32_t>(packages.size());
    Log({LogLevel::Error, result < 0 ? LogKind::Event : LogKind::Routine},
        "result:%{public}d, errCode:%{public}d, pkgNum:%{public}d, fd:%{public}d", result, info.errCode, pkgNum, fd);
    const FileMigrateResMsg msg{result, info.errCode, pkgNum};
    const int sent = Sender(fd).Send(&msg, sizeof(msg));
    if (sent != static_cast<int>(sizeof(msg))) {
        LogFailure({"SEND_REPLY", errno}, "write res msg to fd:%{public}d err, ret: %{public}d, errno: %{public}d", fd,
                   sent, errno);
        EndStream(fd);
        return;
    }
    LogRoutine(LogLevel::Error, "write %{public}d bytes to fd:%{public}d", sent, fd);
    SendStrPkgs(fd, pkgNum, packages);
}

void SendStrPkgs(int fd, std::int32_t pkgNum, const std::vector<std::string_view>& packages) {
    FileMigrateStrPkg pkg{};
    pkg.pkgNum = pkgNum;
    Sender sender(fd);
    for (const std::string_view text : packages) {
        memset_s(pkg.data, sizeof(pkg.data), 0, sizeof(pkg.data));
        ++pkg.pkgIndex;
        const int copied = strncpy_s(pkg.data, sizeof(pkg.data), text.data(), text.length());
        if (copied != 0) {
            LogFailure({"SEND_REPLY", copied}, "strncpy_s ret:%{public}d", copied);
        }
        LogRoutine(LogLevel::Error, "pkgNum:%{public}d, pkgIndex:%{public}d, fd:%{public}d", pkg.pkgNum, pkg.pkgIndex,
                   fd);
        const int sent = sender.Send(&pkg, sizeof(pkg));
        if (sent != static_cast<int>(sizeof(pkg))) {
            LogFailure({"SEND_REPLY", errno},
                       "write extra msg to fd:%{public}d err, ret: %{public}d, errno: %{public}d", fd, sent, errno);
            EndStream(fd);
            return;
        }
        LogRoutine(LogLevel::Error, "write %{public}d bytes to fd:%{public}d", sent, fd);
    }
}

}  // namespace TAVO::FileMigrateOrvane
