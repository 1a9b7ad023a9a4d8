#include "connection.h"

#include <poll.h>
#include <sys/socket.h>
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

void Connection::Close() {
    *this = Connection();
}

std::error_code Connection::Open(const std::string& socketPath, std::uint32_t daemonUser) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // An empty name would not be a file but an unnamed address.
    if (socketPath.empty() || socketPath.size() >= sizeof(address.sun_path)) {
        return std::make_error_code(socketPath.empty() ? std::errc::invalid_argument : std::errc::filename_too_long);
    }
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size());

    Connection opened;
    opened.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (opened.fd < 0 || connect(opened.fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
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

std::error_code Connection::Send(const void* data, std::size_t size) {
    const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
    if (sent < 0) {
        return LastError();
    }
    // Sending the rest would not help, because the daemon refuses both parts.
    return static_cast<std::size_t>(sent) == size ? std::error_code() : std::make_error_code(std::errc::message_size);
}

std::error_code Connection::Receive(void* data, std::size_t size, std::size_t& received) {
    const ssize_t count = recv(fd, data, size, 0);
    if (count == 0) {
        return ClientErrc::ConnectionClosed;
    }
    if (count < 0) {
        return LastError();
    }
    received = static_cast<std::size_t>(count);
    return {};
}

}  // namespace TAVO::FileMigrateClient
