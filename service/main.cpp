// file_migrate_orvane does file-system work for an operating-system upgrade. It takes no arguments but --version and
// reads no configuration file. FILE_MIGRATE_LOG_ALL=1 in the environment sends all log lines to the journal. Its exit
// status is 0; 1 if the version cannot be printed; 2 after any other argument.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <span>

#include "socket_server.h"

namespace {

/// The most descriptors that the daemon uses. A walk takes at least one descriptor and some of its worker's stack for
/// each level of a tree. The workers' stacks are sized by the limit, so that a tree that is too deep exhausts the
/// descriptors first, which is an ordinary error.
constexpr rlim_t MOST_DESCRIPTORS = 32768;

/// Sets the soft limit to the hard one, or to the number for which the workers' stacks have room.
void SetDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min(limit.rlim_max, MOST_DESCRIPTORS);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// Opens /dev/null for each of the descriptors 0 to 2 that is closed. Otherwise a connection could get the number of
/// standard error, and log lines would go to that client.
void FillStandardDescriptors() {
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) {
        fd = open("/dev/null", O_RDWR);
    }
    if (fd > STDERR_FILENO) {
        close(fd);
    }
}

/// Prints the version. Refuses any other argument, because a daemon that `--help` or a misspelled option starts would
/// surprise whoever typed it.
/// @return the exit status
int AnswerArguments(std::span<char*> arguments) {
    if (arguments.size() == 1 && std::strcmp(arguments[0], "--version") == 0) {
        return std::puts("file_migrate_orvane " DAEMON_VERSION) < 0 ? 1 : 0;
    }
    (void)std::fputs("usage: file_migrate_orvane [--version]\n", stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    FillStandardDescriptors();
    if (argc > 1) {
        return AnswerArguments({argv + 1, static_cast<std::size_t>(argc - 1)});
    }
    // A send to a client that has hung up must fail instead of ending the daemon.
    (void)std::signal(SIGPIPE, SIG_IGN);  // cannot fail for this signal
    // A write above the file-size limit must fail with EFBIG instead of ending the daemon.
    (void)std::signal(SIGXFSZ, SIG_IGN);
    SetDescriptorLimit();
    TAVO::FileMigrateOrvane::FileMigrateSocketServer server;
    server.CreateServer();
    return 0;
}
