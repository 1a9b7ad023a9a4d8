// Why a request has no answer: the library's own error codes, and a code with the words that belong to the case
// at hand. Values, owned by whoever holds them; any thread may make and read its own.
//
// A failure of the operating system (no socket file, permission denied) keeps the system's own error code.
#pragma once

#include <string>
#include <system_error>
#include <type_traits>

#include "client_export.h"

namespace TAVO::FileMigrateOrvane {

enum class ClientErrc {
    InvalidRequest = 1,  ///< the daemon would refuse the request without an answer; nothing was sent
    ConnectionClosed,    ///< the daemon hung up before the whole reply had come
    TimedOut,            ///< the deadline passed; a request that was sent may still be carried out
    MalformedReply,      ///< what came is not a reply to the request
};

FILE_MIGRATE_EXPORT const std::error_category& ClientCategory() noexcept;

inline std::error_code make_error_code(ClientErrc code) noexcept {
    return {static_cast<int>(code), ClientCategory()};
}

/// An error code and what it is about; false when there was no failure.
struct Failure {
    std::error_code code;
    std::string detail;  ///< the field and what is wrong with it, the socket's path, the part of a reply; may be empty

    explicit operator bool() const { return static_cast<bool>(code); }

    /// Both as one line of text.
    [[nodiscard]] std::string Message() const {
        return detail.empty() ? code.message() : detail + ": " + code.message();
    }
};

}  // namespace TAVO::FileMigrateOrvane

template <>
struct std::is_error_code_enum<TAVO::FileMigrateOrvane::ClientErrc> : std::true_type {};
