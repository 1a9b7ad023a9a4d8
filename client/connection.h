// A stream connection to the daemon's socket. Every call that can wait has a deadline. It owns its descriptor. Internal
// to the library; used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

#include "deadline.h"

namespace TAVO::FileMigrateClient {

class Connection {
public:
    Connection() = default;
    Connection(Connection&& other) noexcept;
    Connection& operator=(Connection&& other) noexcept;
    ~Connection();

    /// Connects. The connection must be closed.
    /// @param daemonUser  the user id that the listening process must have
    [[nodiscard]] std::error_code Open(const std::string& socketPath, std::uint32_t daemonUser,
                                       const Deadline& deadline);

    /// Whether a request may be sent: it is open, the daemon has not hung up, and there are no unread bytes.
    [[nodiscard]] bool IsReady() const;

    /// Sends all bytes in one piece, because the daemon reads a request with a single call.
    [[nodiscard]] std::error_code Send(const void* data, std::size_t size, const Deadline& deadline);

    /// Receives exactly `size` bytes, in any number of pieces.
    [[nodiscard]] std::error_code Receive(void* data, std::size_t size, const Deadline& deadline);

private:
    [[nodiscard]] std::error_code WaitFor(short events, const Deadline& deadline) const;

    int fd = -1;
};

}  // namespace TAVO::FileMigrateClient
