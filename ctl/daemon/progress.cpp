#include "progress.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "text.h"

namespace TAVO::FileMigrateOrvane {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds INTERVAL{500};
/// The pause after a question takes so many times as long as the answer took: a walk through a large tree is not to
/// slow down the work that it watches.
constexpr int PAUSE_FACTOR = 9;

std::optional<dev_t> DeviceOf(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 ? std::optional(st.st_dev) : std::nullopt;
}

/// Whether both are seen to be on one file system. Only a hint: it saves measuring a tree that is renamed in no time.
bool IsRename(const Transfer& transfer, const Place& source, const Place& destination) {
    const std::optional<dev_t> from = DeviceOf(source.path);
    return transfer.isMove && from && from == DeviceOf(transfer.isOfChildren ? destination.path : destination.parent);
}

std::optional<std::int64_t> Kilobytes(Client& client, const std::string& path) {
    const Size size = client.UsedSpace(path);
    return !size.failure && size.isWhole ? std::optional<std::int64_t>(size.kilobytes) : std::nullopt;
}

double Seconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

/// KB a second; none where the time is too short to tell.
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

std::optional<Growth> Growth::Measure(Client& client, const Transfer& transfer) {
    const Place source = Look(client, transfer.source);
    Place destination = source.IsThere() ? Look(client, transfer.destination) : Place();
    const bool canGrow = destination.IsThere() || destination.kind == Place::Kind::Absent;
    // Where one is part of the other, a walk through the destination meets objects that are on their way.
    const bool overlap = IsWithin(source, destination) || IsWithin(destination, source);
    if (!canGrow || overlap || IsRename(transfer, source, destination)) {
        return std::nullopt;
    }
    const std::optional<std::int64_t> total = Kilobytes(client, source.path);
    // A file at the destination is emptied first, a directory is added to.
    const bool isAddedTo = destination.kind == Place::Kind::Directory;
    const std::optional<std::int64_t> before =
        total && isAddedTo ? Kilobytes(client, destination.path) : std::optional<std::int64_t>(0);
    if (!total || !before) {
        return std::nullopt;
    }
    return Growth(std::move(destination), *total, *before);
}

std::optional<std::int64_t> Growth::Now(Client& client) {
    if (destination.kind == Place::Kind::Absent) {
        const std::string name = destination.path.substr(destination.path.rfind('/') + 1);
        destination.kind = LookIn(client, destination.parent, name);
    }
    if (destination.kind == Place::Kind::Absent) {
        return 0;
    }
    const std::optional<std::int64_t> now =
        destination.IsThere() ? Kilobytes(client, destination.path) : std::optional<std::int64_t>();
    return now ? std::optional(std::clamp<std::int64_t>(*now - start, 0, total)) : std::nullopt;
}

Progress::Progress(const ClientOptions& options, std::string commandName, const Transfer& transfer)
    : name(std::move(commandName)),
      client(options),
      growth(Growth::Measure(client, transfer)),
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
        const std::optional<std::int64_t> done = growth->Now(client);
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
    // Blanks take the rest of the last line away; a terminal that knows no escape sequences will do.
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

}  // namespace TAVO::FileMigrateOrvane
