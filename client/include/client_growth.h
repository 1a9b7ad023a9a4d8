// How far a copy or a move has come, for programs that show progress. A Growth asks the daemon how much space the
// destination uses, on a connection of its own, so that another thread may use it while the transfer's client waits.
//
// It leaves no records: it only measures places that it found in listings (see client_place.h). Measuring a large tree
// takes the daemon some time, so leave pauses between the questions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "client_export.h"
#include "client_place.h"
#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateClient {

/// What is transferred where.
struct Transfer {
    std::string source;  ///< absolute, as is the destination
    std::string destination;
    bool isMove = false;        ///< renamed if possible
    bool isOfChildren = false;  ///< MoveSub or CopySub
};

/// Used by one thread at a time.
class FILE_MIGRATE_EXPORT Growth {
public:
    /// Measures the source, which may soon be gone, and the destination. Call it before the transfer.
    /// @return nothing if measuring is useless (a rename takes no time) or could fail
    [[nodiscard]] static std::optional<Growth> Measure(const ClientOptions& options, const Transfer& transfer);

    /// KB to transfer.
    [[nodiscard]] std::int64_t Total() const { return total; }

    /// KB that have arrived; nothing if the daemon could not tell. Do not call it again then.
    [[nodiscard]] std::optional<std::int64_t> Now();

private:
    Growth(Client connected, Place place, std::int64_t kilobytes, std::int64_t before)
        : client(std::move(connected)), destination(std::move(place)), total(kilobytes), start(before) {}

    Client client;
    Place destination;
    std::int64_t total;
    std::int64_t start;
};

}  // namespace TAVO::FileMigrateClient
