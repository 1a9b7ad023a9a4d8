// A stream connection to the daemon's socket. No call waits. It owns its descriptor. Internal to the library; used by
// one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

namespace TAVO::FileMigrateClient {

class Connection {
public:
    Connection() = default;
    Connection(Connection&& other) noexcept;
    Connection& operator=(Connection&& other) noexcept;
    ~Connection();

    /// Connects. The connection must be closed.
    /// @param daemonUser  the user id that the listening process must have
    /// @return std::errc::operation_would_block if too many connections wait to be accepted; nothing can be waited for,
    ///         so the caller tries again after a while
    [[nodiscard]] std::error_code Open(const std::string& socketPath, std::uint32_t daemonUser);

    void Close();

    /// Whether a request may be sent: it is open, the daemon has not hung up, and there are no unread bytes.
    [[nodiscard]] bool IsReady() const;

    /// Sends all bytes in one piece, because the daemon reads a request with a single call.
    /// @return std::errc::operation_would_block if there is no room yet; then no byte was sent
    [[nodiscard]] std::error_code Send(const void* data, std::size_t size);

    /// Receives at most `size` bytes, which is not 0.
    /// @param received  the number of bytes, at least 1 on success
    /// @return std::errc::operation_would_block if no byte has arrived yet
    [[nodiscard]] std::error_code Receive(void* data, std::size_t size, std::size_t& received);

    /// -1 if it is closed.
    [[nodiscard]] int Descriptor() const { return fd; }

private:
    int fd = -1;
};

}  // namespace TAVO::FileMigrateClient
