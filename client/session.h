// What stands behind a Client: its options, its connection between two exchanges, and the exchange of one request for
// one reply. It owns the connection; it is used by one thread at a time and is part of the library's inside.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "connection.h"
#include "file_migrate_client.hpp"
#include "request.h"

namespace TAVO::FileMigrateOrvane {

class Session {
public:
    explicit Session(ClientOptions clientOptions);

    /// Makes a connection unless there is one that can be used.
    [[nodiscard]] Failure Connect();

    /// Sends a request and receives its reply. Any failure after the check of the request closes the connection.
    /// @param mostPackages  more than that are no reply to this request
    /// @param packages      receives the packages' texts; incomplete after a failure
    Reply Exchange(const Request& request, std::int32_t mostPackages, std::vector<std::string>& packages);

    /// Of a reply without packages.
    Reply Exchange(const Request& request);

    /// For a reply that was whole but made no sense: closes the connection.
    /// @return ClientErrc::MalformedReply
    Failure Malformed(std::string detail);

private:
    [[nodiscard]] Failure Open(Connection& opened) const;
    [[nodiscard]] Failure Send(const FileMigrateRcvMsg& record, Connection& current, Deadline& deadline) const;

    const ClientOptions options;
    Connection connection;  ///< between two exchanges; during one it is the exchange's
};

}  // namespace TAVO::FileMigrateOrvane
