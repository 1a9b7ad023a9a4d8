// One stream connection to the daemon's socket, with a deadline on everything that can wait. It owns its
// descriptor and closes it; it is used by one thread at a time and is part of the library's inside.
#pragma once

#include <cstddef>
#include <string>
#include <system_error>

#include "deadline.h"

namespace TAVO::FileMigrateOrvane {

class Connection {
public:
    Connection() = default;
    Connection(Connection&& other) noexcept;
    Connection& operator=(Connection&& other) noexcept;
    ~Connection();

    /// Connects; called on a closed connection only.
    [[nodiscard]] std::error_code Open(const std::string& socketPath, const Deadline& deadline);

    /// Whether a request may be sent: open, not hung up by the daemon, and nothing unread on it.
    [[nodiscard]] bool IsReady() const;

    /// Sends all bytes in one piece, as the daemon needs it: it reads a request with a single call.
    [[nodiscard]] std::error_code Send(const void* data, std::size_t size, const Deadline& deadline);

    /// Receives exactly `size` bytes, in as many pieces as they come.
    [[nodiscard]] std::error_code Receive(void* data, std::size_t size, const Deadline& deadline);

private:
    [[nodiscard]] std::error_code WaitFor(short events, const Deadline& deadline) const;

    int fd = -1;
};

}  // namespace TAVO::FileMigrateOrvane
