// How far a copy or a move has come, told on standard error while the daemon works. What has arrived is asked of the
// daemon on a second connection, by a thread that this object owns. Used by the main thread, which waits for the
// answer to the operation itself meanwhile.
//
// Nothing here adds to the daemon's records: only places that were found in listings are measured (see place.h), and
// nothing more is asked after the first failure.
#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "file_migrate_client.hpp"
#include "place.h"

namespace TAVO::FileMigrateOrvane {

/// What goes where.
struct Transfer {
    std::string source;
    std::string destination;
    bool isMove = false;  ///< renamed where that is possible
    bool isOfChildren = false;
};

/// What a transfer has added to its destination.
class Growth {
public:
    /// Measures the source, since that can be gone soon, and what is at the destination already.
    /// @return none where a measure would be of no use (a rename is over at once), or could fail
    static std::optional<Growth> Measure(Client& client, const Transfer& transfer);

    /// KB that are to be transferred.
    [[nodiscard]] std::int64_t Total() const { return total; }

    /// KB that have arrived; none when that could not be told, after which it must not be asked again.
    std::optional<std::int64_t> Now(Client& client);

private:
    Growth(Place place, std::int64_t kilobytes, std::int64_t before)
        : destination(std::move(place)), total(kilobytes), start(before) {}

    Place destination;
    std::int64_t total;
    std::int64_t start;
};

class Progress {
public:
    /// Measures what is to be done, and begins to tell of it twice a second.
    /// @param name  of the sub-command, which begins each line
    Progress(const ClientOptions& options, std::string name, const Transfer& transfer);
    ~Progress() { End(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Ends the thread and takes its line away. A question on its way is waited for: were it still walking through the
    /// destination when the next command removes that, it would leave records.
    void End();

    /// ": 35M in 1.2 s (29M/s)", or " in 1.2 s" where the size is not known; until now.
    [[nodiscard]] std::string Summary() const;

private:
    using Clock = std::chrono::steady_clock;

    void Watch();
    void Show(std::int64_t done);
    void Write(const std::string& line);

    const std::string name;
    Client client;                 ///< the thread's, once it runs
    std::optional<Growth> growth;  ///< likewise, but for its total
    const bool isTerminal;
    std::size_t shownWidth = 0;  ///< of the line on the terminal
    Clock::time_point start;
    std::promise<void> end;
    std::jthread thread;
};

}  // namespace TAVO::FileMigrateOrvane
