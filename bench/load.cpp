// Clients in lock-step: each sends a request, waits for the answer and sends it again.
//
//     load SOCKET requests|connections|changes CLIENTS SECONDS
//
// "requests" asks whether / exists and keeps its connections, "connections" opens one for each request. "changes" sets
// the mode of /second-fs to the one it has. Prints one JSON object: answers per second, and the 50th and 99th
// percentile of the time from request to answer in microseconds. Exits with status 1 if a client lost its connection to
// the server or if a request failed.
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "file_migrate_orvane.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

using Clock = std::chrono::steady_clock;

struct Plan {
    sockaddr_un address{};
    bool isConnectingAnew = false;
    FileMigrateRcvMsg request{};
    Clock::time_point end;
};

UniqueFd Connect(const sockaddr_un& address) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool isConnected = fd && connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    return isConnected ? std::move(fd) : UniqueFd();
}

bool Ask(const UniqueFd& fd, const Plan& plan) {
    FileMigrateResMsg reply{};
    return send(fd.Get(), &plan.request, sizeof(plan.request), MSG_NOSIGNAL) == sizeof(plan.request) &&
           recv(fd.Get(), &reply, sizeof(reply), MSG_WAITALL) == sizeof(reply) && reply.result >= 0;
}

/// @return the time of each answer in microseconds, up to the point where the connection was lost
std::vector<double> RunClient(const Plan& plan, std::atomic<bool>& isLost) {
    std::vector<double> times;
    UniqueFd fd = Connect(plan.address);
    while (Clock::now() < plan.end) {
        const Clock::time_point begin = Clock::now();
        if (plan.isConnectingAnew) {
            fd = UniqueFd();
            fd = Connect(plan.address);
        }
        if (!fd || !Ask(fd, plan)) {
            isLost = true;
            break;
        }
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    return times;
}

double Percentile(std::vector<double>& times, int percent) {
    const auto at = times.begin() + static_cast<std::ptrdiff_t>(times.size() * static_cast<std::size_t>(percent) / 100);
    std::nth_element(times.begin(), at, times.end());
    return *at;
}

int Run(const Plan& plan, unsigned int clients, double seconds) {
    std::atomic<bool> isLost = false;
    std::vector<std::vector<double>> perClient(clients);
    {
        std::vector<std::jthread> threads;
        for (std::vector<double>& times : perClient) {
            threads.emplace_back([&] { times = RunClient(plan, isLost); });
        }
    }
    std::vector<double> all;
    for (const std::vector<double>& times : perClient) {
        all.insert(all.end(), times.begin(), times.end());
    }
    if (isLost || all.empty()) {
        (void)std::fputs("load: a client lost its server or its request failed\n", stderr);
        return 1;
    }
    const double median = Percentile(all, 50), tail = Percentile(all, 99);
    std::printf("{\"per_second\": %.0f, \"p50_us\": %.1f, \"p99_us\": %.1f}\n", double(all.size()) / seconds, median,
                tail);
    return 0;
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane

int main(int argc, char* argv[]) {
    using namespace TAVO::FileMigrateOrvane;
    Plan plan;
    plan.address.sun_family = AF_UNIX;
    const std::string mode = argc == 5 ? argv[2] : "";
    if ((mode != "requests" && mode != "connections" && mode != "changes") ||
        std::strlen(argv[1]) >= sizeof(plan.address.sun_path)) {
        (void)std::fputs("usage: load SOCKET requests|connections|changes CLIENTS SECONDS\n", stderr);
        return 2;
    }
    std::strcpy(plan.address.sun_path, argv[1]);
    const bool isChange = mode == "changes";
    plan.request.cmd = static_cast<std::int32_t>(isChange ? Command::ChMod : Command::IsExist);
    plan.request.recurseOpt = 1;
    std::strcpy(plan.request.src, isChange ? "/second-fs" : "/");
    std::strcpy(plan.request.perm, "1777");
    plan.isConnectingAnew = mode == "connections";
    const double seconds = std::strtod(argv[4], nullptr);
    plan.end = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    return Run(plan, static_cast<unsigned int>(std::strtoul(argv[3], nullptr, 10)), seconds);
}
