// The real daemon as a child process, its standard error collected. It is killed with its wrapper at the end of the
// object's life, or with the test's process. Only one at a time can have the socket. One thread.
//
// The environment variable FILE_MIGRATE_TEST_WRAPPER holds a command, such as an emulator, that runs the daemon and
// orvanectl in all tests.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "raw_client.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {

struct DaemonOptions {
    std::vector<std::string> environment = {};  ///< "NAME=value", besides the test's own
    std::vector<std::string> wrapper = {};      ///< a command that runs the daemon, which is appended: strace -f ...
    bool isExpectedToListen = true;             ///< the constructor waits until it does
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool IS_SANITIZED = true;  ///< sanitizers keep freed memory, so memory figures mean little
#else
inline constexpr bool IS_SANITIZED = false;
#endif

struct Usage {
    long descriptors;
    long residentKb;
    long dataKb;        ///< private writable memory, as RLIMIT_DATA counts it
    double cpuSeconds;  ///< of all threads
};

class DaemonProcess {
public:
    /// Removes a stale socket file and starts the daemon. Throws if it does not listen in time.
    explicit DaemonProcess(const DaemonOptions& options = {});
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    /// The daemon's own process id, not its wrapper's; 0 if it is not running.
    [[nodiscard]] pid_t Pid() const;

    /// What the daemon uses at the moment.
    [[nodiscard]] Usage Used() const;

    /// What was written to standard error until now.
    /// @param begin  how many bytes to leave out
    [[nodiscard]] std::string Log(std::size_t begin = 0) const;

    /// Waits until the daemon exits by itself.
    /// @return the status as waitpid gives it; nothing if the deadline passed
    std::optional<int> WaitExit(Deadline deadline = PATIENCE);

private:
    UniqueFd log;
    pid_t child = 0;
    std::optional<int> status;
};

}  // namespace TAVO::FileMigrateOrvane::Testing
