// A client that need not keep to the protocol: it sends any bytes and reads replies only if the test does. Used by one
// thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "file_migrate_orvane.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {

inline constexpr const char* SOCKET_PATH = "/dev/unix/socket/file_migrate_orvane";
using Deadline = std::chrono::milliseconds;
inline constexpr Deadline PATIENCE{60000};  ///< for events that must happen; long, because the machine may be slow

/// Waits until a condition holds; false if it does not hold before the deadline.
bool Becomes(const auto& isTrue, Deadline deadline = PATIENCE) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    bool holds = isTrue();
    while (!holds && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(Deadline{5});
        holds = isTrue();
    }
    return holds;
}

struct Request {
    Command cmd{};
    std::string src = {};
    std::string dst = {};
    std::string user = {};
    std::string group = {};
    std::string perm = {};
    int recurseOpt = 0;

    /// The record as it is sent. A text as long as its field fills the field without a NUL; a longer text is cut.
    [[nodiscard]] FileMigrateRcvMsg Wire() const;
};

/// A request for the row of a table. The formatter puts the fields of a row with inner braces on a line each.
inline Request Ask(Command cmd, const char* src, const char* dst = "", const char* user = "", const char* group = "",
                   const char* perm = "", int recurseOpt = 0) {
    return {cmd, src, dst, user, group, perm, recurseOpt};
}

struct Reply {
    int result = 0;
    int errCode = 0;
    std::vector<std::string> packages = {};

    /// All result strings: the packages' texts with "/" between them.
    [[nodiscard]] std::string Strings() const;
    bool operator==(const Reply&) const = default;
    friend void PrintTo(const Reply& reply, std::ostream* out) {
        *out << "result " << reply.result << ", error " << reply.errCode << ", " << reply.Strings();
    }
};

class RawClient {
public:
    explicit RawClient(const std::string& socketPath = SOCKET_PATH);

    [[nodiscard]] int Fd() const { return fd.Get(); }
    void Close() { fd = UniqueFd(); }

    void Send(std::string_view bytes);
    void Send(const Request& request);

    /// Reads one whole reply. Throws if the reply is incomplete or its packages are malformed.
    /// @return nothing if no byte came before the deadline or before the peer closed the connection
    std::optional<Reply> Receive(Deadline deadline = PATIENCE);

    /// Sends a request and reads its reply; throws if there is no reply.
    Reply Call(const Request& request);

private:
    std::size_t Read(void* buffer, std::size_t size, Deadline deadline);
    std::string ReadPackage(std::int32_t count, std::int32_t index);

    UniqueFd fd;
};

}  // namespace TAVO::FileMigrateOrvane::Testing
