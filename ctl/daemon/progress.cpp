#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <utility>

#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds INTERVAL{500};
/// The pause after a question is this many times as long as the answer took, so that measuring a large tree does not
/// slow down the transfer.
constexpr int PAUSE_FACTOR = 9;

// The text that the handler writes. It is set before the handler is installed and cleared after it is removed.
const char* g_noticeBytes = nullptr;
std::size_t g_noticeSize = 0;

extern "C" void WriteNotice(int signalNumber) {
    (void)!write(STDERR_FILENO, g_noticeBytes, g_noticeSize);
    (void)raise(signalNumber);  // delivered on return, with the default action because of SA_RESETHAND
}

double Seconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

/// KB per second; nothing if the time is too short.
std::optional<double> Rate(std::int64_t kilobytes, double seconds) {
    constexpr double shortest = 0.1;
    return seconds >= shortest && kilobytes > 0 ? std::optional(static_cast<double>(kilobytes) / seconds)
                                                : std::nullopt;
}

std::string RateText(double rate) {
    return HumanSize(static_cast<std::uint64_t>(rate)) + "/s";
}

/// "1:02:03" or "2:03".
std::string ClockText(std::int64_t seconds) {
    constexpr std::int64_t minute = 60, hour = 3600;
    std::array<char, 32> text{};
    if (seconds >= hour) {
        (void)std::snprintf(text.data(), text.size(), "%jd:%02jd:%02jd", std::intmax_t{seconds / hour},
                            std::intmax_t{seconds % hour / minute}, std::intmax_t{seconds % minute});
    } else {
        (void)std::snprintf(text.data(), text.size(), "%jd:%02jd", std::intmax_t{seconds / minute},
                            std::intmax_t{seconds % minute});
    }
    return text.data();
}

}  // namespace

Progress::Progress(const ClientOptions& options, std::string commandName, const Transfer& transfer)
    : name(std::move(commandName)),
      growth(Growth::Measure(options, transfer)),
      isTerminal(isatty(STDERR_FILENO) == 1),
      start(Clock::now()) {
    if (growth) {
        thread = std::jthread([this] { Watch(); });
    }
}

void Progress::End() {
    if (thread.joinable()) {
        end.set_value();
        thread.join();
        if (isTerminal) {
            Write("");
        }
    }
}

void Progress::Watch() {
    const std::future<void> ended = end.get_future();
    Clock::duration pause = INTERVAL;
    while (ended.wait_for(pause) == std::future_status::timeout) {
        const Clock::time_point asked = Clock::now();
        const std::optional<std::int64_t> done = growth->Now();
        if (!done) {
            return;
        }
        Show(*done);
        pause = std::max<Clock::duration>(INTERVAL, PAUSE_FACTOR * (Clock::now() - asked));
    }
}

void Progress::Show(std::int64_t done) {
    const std::int64_t total = growth->Total();
    std::string line = name + ": " + HumanSize(static_cast<std::uint64_t>(done)) + " of " +
                       HumanSize(static_cast<std::uint64_t>(total));
    if (total > 0) {
        line += ", " + std::to_string(done * 100 / total) + " %";
    }
    if (const std::optional<double> rate = Rate(done, Seconds(Clock::now() - start))) {
        const auto left = static_cast<std::int64_t>(static_cast<double>(total - done) / *rate);
        line += ", " + RateText(*rate) + ", " + ClockText(left) + " left";
    }
    Write(line);
}

void Progress::Write(const std::string& line) {
    if (!isTerminal) {
        (void)std::fprintf(stderr, "%s\n", line.c_str());
        return;
    }
    // Blanks erase the rest of the last line, so that no escape sequences are needed.
    const std::string rest(shownWidth > line.size() ? shownWidth - line.size() : 0, ' ');
    (void)std::fprintf(stderr, "\r%s%s%s", line.c_str(), rest.c_str(), line.empty() ? "\r" : "");
    shownWidth = line.size();
}

std::string Progress::Summary() const {
    const double seconds = Seconds(Clock::now() - start);
    std::array<char, 32> time{};
    (void)std::snprintf(time.data(), time.size(), "in %.1f s", seconds);
    if (!growth) {
        return std::string(" ") + time.data();
    }
    const std::optional<double> rate = Rate(growth->Total(), seconds);
    return ": " + HumanSize(static_cast<std::uint64_t>(growth->Total())) + " " + time.data() +
           (rate ? " (" + RateText(*rate) + ")" : "");
}

InterruptNotice::InterruptNotice(std::string noticeText) : text(std::move(noticeText)) {
    struct sigaction now {};
    if (sigaction(SIGINT, nullptr, &now) != 0 || now.sa_handler == SIG_IGN) {
        return;
    }
    g_noticeBytes = text.data();
    g_noticeSize = text.size();
    now = {};
    now.sa_handler = WriteNotice;
    now.sa_flags = static_cast<int>(SA_RESETHAND);
    (void)sigaction(SIGINT, &now, nullptr);
}

InterruptNotice::~InterruptNotice() {
    if (g_noticeBytes != nullptr) {
        (void)std::signal(SIGINT, SIG_DFL);
        g_noticeBytes = nullptr;
    }
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
