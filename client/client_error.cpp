#include "client_error.h"

namespace TAVO::FileMigrateClient {
namespace {

class Category final : public std::error_category {
public:
    [[nodiscard]] const char* name() const noexcept override { return "file_migrate_client"; }

    [[nodiscard]] std::string message(int code) const override {
        switch (static_cast<ClientErrc>(code)) {
            case ClientErrc::InvalidRequest:
                return "the request is not valid; it was not sent";
            case ClientErrc::ConnectionClosed:
                return "the daemon closed the connection";
            case ClientErrc::TimedOut:
                return "timed out";
            case ClientErrc::MalformedReply:
                return "malformed reply";
            case ClientErrc::UntrustedPeer:
                return "the socket belongs to another user than the daemon";
            case ClientErrc::Cancelled:
                return "the request was cancelled";
            case ClientErrc::Busy:
                return "another request of this client is not finished";
        }
        return "unknown error " + std::to_string(code);
    }

    [[nodiscard]] std::error_condition default_error_condition(int code) const noexcept override {
        switch (static_cast<ClientErrc>(code)) {
            case ClientErrc::InvalidRequest:
                return std::errc::invalid_argument;
            case ClientErrc::ConnectionClosed:
                return std::errc::connection_reset;
            case ClientErrc::TimedOut:
                return std::errc::timed_out;
            case ClientErrc::MalformedReply:
                return std::errc::bad_message;
            case ClientErrc::UntrustedPeer:
                return std::errc::permission_denied;
            case ClientErrc::Cancelled:
                return std::errc::operation_canceled;
            case ClientErrc::Busy:
                return std::errc::operation_in_progress;
        }
        return {code, *this};
    }
};

}  // namespace

const std::error_category& ClientCategory() noexcept {
    static const Category category;
    return category;
}

}  // namespace TAVO::FileMigrateClient
