#include "session.h"

#include <cstring>
#include <utility>

namespace TAVO::FileMigrateClient {
namespace {

/// Receives one reply. It does not trust the daemon's bytes, so it never allocates by an announced count.
class Receiver {
public:
    Receiver(Connection& usedConnection, const Deadline& usedDeadline)
        : connection(usedConnection), deadline(usedDeadline) {}

    Failure Run(std::int32_t mostPackages, Reply& reply, std::vector<std::string>& packages) {
        FileMigrateOrvane::FileMigrateResMsg answer{};
        if (const std::error_code error = connection.Receive(&answer, sizeof(answer), deadline)) {
            return {error, "the request was sent; waiting for its result"};
        }
        if (answer.pkgNum < 0 || answer.pkgNum > mostPackages) {
            return {ClientErrc::MalformedReply, std::to_string(answer.pkgNum) + " packages announced"};
        }
        reply.result = answer.result;
        reply.errCode = answer.errCode;
        for (std::int32_t index = 1; index <= answer.pkgNum; ++index) {
            if (Failure failure = ReceivePackage(index, answer.pkgNum, packages)) {
                return failure;
            }
        }
        return {};
    }

private:
    Failure ReceivePackage(std::int32_t index, std::int32_t count, std::vector<std::string>& packages) {
        const std::string name = "package " + std::to_string(index) + " of " + std::to_string(count);
        FileMigrateOrvane::FileMigrateStrPkg package{};
        if (const std::error_code error = connection.Receive(&package, sizeof(package), deadline)) {
            return {error, "waiting for " + name};
        }
        if (package.pkgNum != count || package.pkgIndex != index) {
            return {ClientErrc::MalformedReply,
                    name + " is headed " + std::to_string(package.pkgIndex) + " of " + std::to_string(package.pkgNum)};
        }
        const std::size_t length = strnlen(package.data, sizeof(package.data));
        if (length == sizeof(package.data)) {
            return {ClientErrc::MalformedReply, name + " has no end"};
        }
        packages.emplace_back(package.data, length);
        return {};
    }

    Connection& connection;
    const Deadline& deadline;
};

}  // namespace

Session::Session(ClientOptions clientOptions) : options(std::move(clientOptions)) {}

Failure Session::Connect() {
    return connection.IsReady() ? Failure() : Open(connection);
}

Failure Session::Open(Connection& opened) const {
    opened = Connection();
    if (const std::error_code error =
            opened.Open(options.socketPath, options.daemonUser, Deadline(options.connectLimit))) {
        return {error, "connecting to " + options.socketPath};
    }
    return {};
}

Failure Session::Send(const FileMigrateRcvMsg& record, Connection& current, Deadline& deadline) const {
    // The daemon exits after ten idle minutes, possibly between this check of the connection and the send. A send that
    // fails because the connection is closed has sent nothing, so the request may be sent on a new connection.
    std::error_code error = ClientErrc::ConnectionClosed;
    if (current.IsReady()) {
        deadline = Deadline(options.replyLimit);
        error = current.Send(&record, sizeof(record), deadline);
    }
    if (error == ClientErrc::ConnectionClosed) {
        if (Failure failure = Open(current)) {
            return failure;
        }
        deadline = Deadline(options.replyLimit);
        error = current.Send(&record, sizeof(record), deadline);
    }
    return error ? Failure{error, "sending the request"} : Failure();
}

Reply Session::Exchange(const Request& request, std::int32_t mostPackages, std::vector<std::string>& packages) {
    Reply reply;
    FileMigrateRcvMsg record;
    reply.failure = EncodeRequest(request, record);
    if (reply.failure) {
        return reply;
    }
    // Put back after a complete reply only. Every other way out, including an exception, closes the connection.
    Connection current = std::move(connection);
    Deadline deadline(options.replyLimit);
    reply.failure = Send(record, current, deadline);
    if (!reply.failure) {
        reply.failure = Receiver(current, deadline).Run(mostPackages, reply, packages);
    }
    if (!reply.failure) {
        connection = std::move(current);
    }
    return reply;
}

Reply Session::Exchange(const Request& request) {
    std::vector<std::string> packages;
    return Exchange(request, 0, packages);
}

Failure Session::Malformed(std::string detail) {
    connection = Connection();
    return {ClientErrc::MalformedReply, std::move(detail)};
}

}  // namespace TAVO::FileMigrateClient
