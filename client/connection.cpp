#include "connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "client_error.h"

namespace TAVO::FileMigrateClient {
namespace {

std::error_code LastError() {
    // Whichever call notices it first, a closed connection is one error for the caller.
    return errno == EPIPE || errno == ECONNRESET ? make_error_code(ClientErrc::ConnectionClosed)
                                                 : std::error_code(errno, std::system_category());
}

/// Limits how long a connect waits for room in the listener's backlog. It fails if no time is left.
std::error_code SetConnectLimit(int fd, const Deadline& deadline) {
    const int left = deadline.Remaining();
    if (left == 0) {
        return ClientErrc::TimedOut;
    }
    timeval limit{};  // zero means no limit
    if (left > 0) {
        limit.tv_sec = left / 1000;
        limit.tv_usec = left % 1000 * 1000L;
    }
    return setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) == 0 ? std::error_code() : LastError();
}

/// Whoever can replace the socket file could read the requests and invent the replies.
std::error_code CheckPeer(int fd, std::uint32_t daemonUser) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return LastError();
    }
    return peer.uid == daemonUser ? std::error_code() : make_error_code(ClientErrc::UntrustedPeer);
}

}  // namespace

Connection::Connection(Connection&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

Connection& Connection::operator=(Connection&& other) noexcept {
    Connection taken(std::move(other));
    std::swap(fd, taken.fd);
    return *this;
}

Connection::~Connection() {
    if (fd >= 0) {
        close(fd);
    }
}

std::error_code Connection::Open(const std::string& socketPath, std::uint32_t daemonUser, const Deadline& deadline) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // An empty name would not be a file but an unnamed address.
    if (socketPath.empty() || socketPath.size() >= sizeof(address.sun_path)) {
        return std::make_error_code(socketPath.empty() ? std::errc::invalid_argument : std::errc::filename_too_long);
    }
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size());

    Connection opened;
    opened.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (opened.fd < 0) {
        return LastError();
    }
    int result = -1;
    do {
        if (const std::error_code error = SetConnectLimit(opened.fd, deadline)) {
            return error;
        }
        result = connect(opened.fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        // EAGAIN: the backlog stayed full until the limit. EINTR: a signal interrupted the wait.
    } while (result != 0 && (errno == EINTR || errno == EAGAIN));
    if (result != 0) {
        return LastError();
    }
    if (const std::error_code error = CheckPeer(opened.fd, daemonUser)) {
        return error;
    }
    *this = std::move(opened);
    return {};
}

bool Connection::IsReady() const {
    pollfd entry{fd, POLLIN | POLLRDHUP, 0};
    return fd >= 0 && poll(&entry, 1, 0) == 0;
}

std::error_code Connection::WaitFor(short events, const Deadline& deadline) const {
    for (;;) {
        const int left = deadline.Remaining();
        if (left == 0) {
            return ClientErrc::TimedOut;
        }
        pollfd entry{fd, events, 0};
        const int ready = poll(&entry, 1, left);
        if (ready > 0) {
            return {};
        }
        if (ready < 0 && errno != EINTR) {
            return LastError();
        }
    }
}

std::error_code Connection::Send(const void* data, std::size_t size, const Deadline& deadline) {
    for (;;) {
        const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            // Sending the rest would not help, because the daemon refuses both parts.
            return static_cast<std::size_t>(sent) == size ? std::error_code()
                                                          : std::make_error_code(std::errc::message_size);
        }
        if (errno == EAGAIN) {
            if (const std::error_code error = WaitFor(POLLOUT, deadline)) {
                return error;
            }
        } else if (errno != EINTR) {
            return LastError();
        }
    }
}

std::error_code Connection::Receive(void* data, std::size_t size, const Deadline& deadline) {
    char* next = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t received = recv(fd, next, size, MSG_DONTWAIT);
        if (received == 0) {
            return ClientErrc::ConnectionClosed;
        }
        if (received > 0) {
            next += received;
            size -= static_cast<std::size_t>(received);
        } else if (errno == EAGAIN) {
            if (const std::error_code error = WaitFor(POLLIN, deadline)) {
                return error;
            }
        } else if (errno != EINTR) {
            return LastError();
        }
    }
    return {};
}

}  // namespace TAVO::FileMigrateClient
