// The implementation of a Client: its options, its connection, and the exchange of a request for a reply. It owns the
// connection. Internal to the library; used by one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "connection.h"
#include "file_migrate_client.hpp"
#include "request.h"

namespace TAVO::FileMigrateClient {

class Session {
public:
    explicit Session(ClientOptions clientOptions);

    /// Connects, unless there is a usable connection.
    [[nodiscard]] Failure Connect();

    /// Sends a request and receives its reply. Any failure after the check of the request closes the connection.
    /// @param mostPackages  a reply with more packages is malformed
    /// @param packages      receives the texts of the packages; incomplete after a failure
    Reply Exchange(const Request& request, std::int32_t mostPackages, std::vector<std::string>& packages);

    /// The same for a command whose reply has no packages.
    Reply Exchange(const Request& request);

    /// Closes the connection after a reply that was complete but cannot be understood.
    /// @return ClientErrc::MalformedReply
    Failure Malformed(std::string detail);

private:
    [[nodiscard]] Failure Open(Connection& opened) const;
    [[nodiscard]] Failure Send(const FileMigrateRcvMsg& record, Connection& current, Deadline& deadline) const;

    const ClientOptions options;
    Connection connection;  ///< closed during an exchange, which takes it over
};

}  // namespace TAVO::FileMigrateClient
