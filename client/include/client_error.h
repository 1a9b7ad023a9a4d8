// The reasons why a request has no answer: the library's error codes, and an error code with a description. Plain
// values.
//
// A failure of a system call (no socket file, permission denied) has the system's error code.
#pragma once

#include <string>
#include <system_error>
#include <type_traits>

#include "client_export.h"

namespace TAVO::FileMigrateClient {

/// The std::errc to which a code compares equal is in parentheses.
enum class ClientErrc {
    InvalidRequest = 1,  ///< the daemon would refuse the request or misread it, so it was not sent (invalid_argument)
    ConnectionClosed,    ///< the daemon closed the connection before the reply was complete (connection_reset)
    TimedOut,            ///< the limit passed; the daemon may still carry out a request that was sent (timed_out)
    MalformedReply,      ///< the bytes received are not a reply to the request (bad_message)
    UntrustedPeer = 8,   ///< another user than the daemon's listens; nothing was sent (permission_denied)
    Cancelled,           ///< the caller ended the request; the daemon may still carry it out (operation_canceled)
    Busy,                ///< another request of this client is not finished; nothing was sent (operation_in_progress)
};

FILE_MIGRATE_EXPORT const std::error_category& ClientCategory() noexcept;

inline std::error_code make_error_code(ClientErrc code) noexcept {
    return {static_cast<int>(code), ClientCategory()};
}

/// An error code and its context; false if there was no failure.
struct Failure {
    std::error_code code;
    std::string detail;  ///< for example a field and its fault, or the socket's path; can be empty

    explicit operator bool() const { return static_cast<bool>(code); }

    /// The detail and the code's message as one line.
    [[nodiscard]] std::string Message() const {
        return detail.empty() ? code.message() : detail + ": " + code.message();
    }
};

}  // namespace TAVO::FileMigrateClient

template <>
struct std::is_error_code_enum<TAVO::FileMigrateClient::ClientErrc> : std::true_type {};
