// How the daemon is to be reached, as the command line gives it to every sub-command that talks to it.
#pragma once

#include <chrono>

#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateOrvane {

struct DaemonOptions {
    ClientOptions client;
    int timeoutSeconds = -1;  ///< longest wait for an answer, 0 for ever; negative: the sub-command's own

    /// @param usualSeconds  how long to wait where the command line does not say
    [[nodiscard]] ClientOptions WaitingFor(int usualSeconds) const {
        ClientOptions options = client;
        options.replyLimit = std::chrono::seconds(timeoutSeconds >= 0 ? timeoutSeconds : usualSeconds);
        return options;
    }
};

}  // namespace TAVO::FileMigrateOrvane
