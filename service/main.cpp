// file_migrate_orvane: file-system work on behalf of an operating-system upgrade. It has no command line, no
// configuration and no environment variables of its own; its exit status is always 0.
#include <sys/resource.h>

#include <csignal>

#include "socket_server.h"

namespace {

/// A walk holds one descriptor per level of a tree, a client one more.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

int main() {
    // A client that is gone before its reply makes send() fail; it must not end the daemon.
    (void)std::signal(SIGPIPE, SIG_IGN);  // cannot fail for this signal
    RaiseDescriptorLimit();
    TAVO::FileMigrateOrvane::FileMigrateSocketServer server;
    server.CreateServer();
    return 0;
}
