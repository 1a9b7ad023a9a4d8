// What the user sees while the daemon works: the progress of a copy or a move on standard error, and a message for
// Ctrl-C. Used by the main thread, which waits for the daemon's answer.
//
// Progress asks the daemon how much has arrived, from a thread of its own (see client_growth.h).
#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "client_growth.h"
#include "client_library.h"

namespace TAVO::FileMigrateOrvane::Ctl {

class Progress {
public:
    /// Measures the source and starts to print the progress twice a second.
    /// @param name  the sub-command, which begins each line
    Progress(const ClientOptions& options, std::string name, const Transfer& transfer);
    ~Progress() { End(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Ends the thread and clears its line. Waits for a pending question: if the next command removed the destination
    /// while the daemon is measuring it, that would leave records.
    void End();

    /// The work so far: ": 35M in 1.2 s (29M/s)", or " in 1.2 s" if the size is not known.
    [[nodiscard]] std::string Summary() const;

private:
    using Clock = std::chrono::steady_clock;

    void Watch();
    void Show(std::int64_t done);
    void Write(const std::string& line);

    const std::string name;
    std::optional<Growth> growth;  ///< used by the thread only, once it runs, except for its total
    const bool isTerminal;
    std::size_t shownWidth = 0;  ///< width of the line on the terminal
    Clock::time_point start;
    std::promise<void> end;
    std::jthread thread;
};

/// The message for Ctrl-C, which ends orvanectl but not the daemon's work. It installs the process's signal handler, so
/// there is at most one at a time, in the main thread.
class InterruptNotice {
public:
    /// Makes SIGINT write the text to standard error before it ends the process as usual. An ignored SIGINT stays
    /// ignored.
    explicit InterruptNotice(std::string noticeText);
    ~InterruptNotice();
    InterruptNotice(const InterruptNotice&) = delete;
    InterruptNotice& operator=(const InterruptNotice&) = delete;

private:
    const std::string text;  ///< read by the signal handler
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
