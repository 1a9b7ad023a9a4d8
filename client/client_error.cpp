#include "client_error.h"

namespace TAVO::FileMigrateClient {
namespace {

class Category final : public std::error_category {
public:
    [[nodiscard]] const char* name() const noexcept override { return "file_migrate_client"; }

    [[nodiscard]] std::string message(int code) const override {
        switch (static_cast<ClientErrc>(code)) {
            case ClientErrc::InvalidRequest:
                return "the daemon would refuse the request; it was not sent";
            case ClientErrc::ConnectionClosed:
                return "the daemon closed the connection";
            case ClientErrc::TimedOut:
                return "timed out";
            case ClientErrc::MalformedReply:
                return "malformed reply";
            case ClientErrc::UntrustedPeer:
                return "the socket belongs to another user than the daemon";
        }
        return "unknown error " + std::to_string(code);
    }
};

}  // namespace

const std::error_category& ClientCategory() noexcept {
    static const Category category;
    return category;
}

}  // namespace TAVO::FileMigrateClient
