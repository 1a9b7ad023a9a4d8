#include "daemon_process.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>
#include <stdexcept>
#include <system_error>

#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

/// Runs the daemon in the forked child; returns only on failure.
void Execute(const DaemonOptions& options) {
    // A preloaded library (faketime) comes before the address sanitizer's, which otherwise refuses to start.
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", /*overwrite=*/0);
    for (const std::string& variable : options.environment) {
        putenv(const_cast<char*>(variable.c_str()));
    }
    std::vector<char*> arguments;
    for (const std::string& word : options.wrapper) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    if (char* command = std::getenv("FILE_MIGRATE_TEST_WRAPPER"); command != nullptr) {
        arguments.push_back(command);
    }
    arguments.push_back(const_cast<char*>(DAEMON_PATH));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
}

/// The process that runs the daemon's binary: `pid` or the first such descendant of it; 0 if there is none.
pid_t FindDaemon(pid_t pid) {
    const std::string process = "/proc/" + std::to_string(pid);
    std::error_code ignored;
    // The file and not the text of the link, which differs if the process has mounts of its own below a chroot.
    if (fs::equivalent(process + "/exe", DAEMON_PATH, ignored)) {
        return pid;
    }
    std::ifstream children(process + "/task/" + std::to_string(pid) + "/children");
    for (pid_t next = 0; children >> next;) {
        if (const pid_t found = FindDaemon(next); found != 0) {
            return found;
        }
    }
    return 0;
}

/// Whether a process listens on the socket file. This does not connect, because that would add lines to the log.
bool IsListening() {
    static const std::regex listening(std::string(" 00010000 .* ") + SOCKET_PATH + "\n");
    return fs::exists(SOCKET_PATH) && std::regex_search(ReadFile("/proc/net/unix"), listening);
}

}  // namespace

DaemonProcess::DaemonProcess(const DaemonOptions& options) : log(memfd_create("daemon-log", MFD_CLOEXEC)) {
    fcntl(log.Get(), F_SETFL, O_APPEND);  // Log() moves the offset that both share
    fs::remove(SOCKET_PATH);
    child = fork();
    if (child == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(log.Get(), STDERR_FILENO);
        Execute(options);
        _exit(127);
    }
    setpgid(child, child);
    if (options.isExpectedToListen && !Becomes([this] { return IsListening() || WaitExit(Deadline{0}); }, PATIENCE)) {
        throw std::runtime_error("the daemon does not listen; its log:\n" + Log());
    }
}

DaemonProcess::~DaemonProcess() {
    // The group also contains processes that a wrapper left behind.
    kill(-child, SIGKILL);
    if (!status) {
        waitpid(child, nullptr, 0);
    }
    unlink(SOCKET_PATH);
}

pid_t DaemonProcess::Pid() const {
    return FindDaemon(child);
}

Usage DaemonProcess::Used() const {
    const std::string process = "/proc/" + std::to_string(Pid()), figures = ReadFile(process + "/status");
    const auto kilobytes = [&](const char* key) { return std::stol(figures.substr(figures.find(key) + 7)); };
    clockid_t clock{};
    timespec used{};
    clock_getcpuclockid(Pid(), &clock);
    clock_gettime(clock, &used);
    return {std::distance(fs::directory_iterator(process + "/fd"), {}), kilobytes("VmRSS:"), kilobytes("VmData:"),
            static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9};
}

std::string DaemonProcess::Log(std::size_t begin) const {
    std::string text(static_cast<std::size_t>(lseek(log.Get(), 0, SEEK_END)) - begin, '\0');
    text.resize(static_cast<std::size_t>(pread(log.Get(), text.data(), text.size(), static_cast<off_t>(begin))));
    return text;
}

std::optional<int> DaemonProcess::WaitExit(Deadline deadline) {
    const auto hasEnded = [this] {
        int result = 0;
        if (!status && waitpid(child, &result, WNOHANG) == child) {
            status = result;
        }
        return status.has_value();
    };
    (void)Becomes(hasEnded, deadline);
    return status;
}

}  // namespace TAVO::FileMigrateOrvane::Testing
