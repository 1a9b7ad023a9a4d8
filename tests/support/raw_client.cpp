#include "raw_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace TAVO::FileMigrateOrvane::Testing {

FileMigrateRcvMsg Request::Wire() const {
    FileMigrateRcvMsg message{};
    message.cmd = static_cast<std::int32_t>(cmd);
    src.copy(message.src, sizeof(message.src));
    dst.copy(message.dst, sizeof(message.dst));
    user.copy(message.user, sizeof(message.user));
    group.copy(message.group, sizeof(message.group));
    perm.copy(message.perm, sizeof(message.perm));
    message.recurseOpt = recurseOpt;
    return message;
}

std::string Reply::Strings() const {
    std::string joined;
    for (const std::string& package : packages) {
        joined += (&package == &packages.front() ? "" : "/") + package;
    }
    return joined;
}

RawClient::RawClient(const std::string& socketPath) : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::system_error(errno, std::generic_category(), "connect " + socketPath);
    }
}

void RawClient::Send(std::string_view bytes) {
    if (send(fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "send");
    }
}

void RawClient::Send(const Request& request) {
    const FileMigrateRcvMsg message = request.Wire();
    Send({reinterpret_cast<const char*>(&message), sizeof(message)});
}

/// Reads until the buffer is full, the peer closes the connection, or no data comes for as long as the deadline.
std::size_t RawClient::Read(void* buffer, std::size_t size, Deadline deadline) {
    std::size_t got = 0;
    pollfd readable{fd.Get(), POLLIN, 0};
    while (got < size && poll(&readable, 1, static_cast<int>(deadline.count())) > 0) {
        const ssize_t n = recv(fd.Get(), static_cast<char*>(buffer) + got, size - got, 0);
        if (n <= 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
    }
    return got;
}

std::string RawClient::ReadPackage(std::int32_t count, std::int32_t index) {
    FileMigrateStrPkg package{};
    if (Read(&package, sizeof(package), PATIENCE) != sizeof(package)) {
        throw std::runtime_error("package " + std::to_string(index) + " of " + std::to_string(count) + " is missing");
    }
    const std::string_view data(package.data, sizeof(package.data));
    const std::string_view text = data.substr(0, data.find('\0'));
    const bool isClean = text.size() < data.size() && data.find_first_not_of('\0', text.size()) == data.npos;
    if (package.pkgNum != count || package.pkgIndex != index || !isClean) {
        throw std::runtime_error("package " + std::to_string(index) + " is malformed");
    }
    return std::string(text);
}

std::optional<Reply> RawClient::Receive(Deadline deadline) {
    FileMigrateResMsg head{};
    const std::size_t got = Read(&head, sizeof(head), deadline);
    if (got == 0) {
        return std::nullopt;
    }
    if (got != sizeof(head)) {
        throw std::runtime_error("result record of " + std::to_string(got) + " bytes");
    }
    Reply reply{head.result, head.errCode};
    for (std::int32_t index = 1; index <= head.pkgNum; ++index) {
        reply.packages.push_back(ReadPackage(head.pkgNum, index));
    }
    return reply;
}

Reply RawClient::Call(const Request& request) {
    Send(request);
    return Receive().value();
}

}  // namespace TAVO::FileMigrateOrvane::Testing
