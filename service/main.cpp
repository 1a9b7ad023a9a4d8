// file_migrate_orvane: file-system work on behalf of an operating-system upgrade. It has no command line, no
// configuration and no environment variables of its own; its exit status is always 0.
#include <sys/resource.h>

#include <algorithm>
#include <csignal>

#include "socket_server.h"

namespace {

/// How many descriptors the daemon takes at most. A walk recurses, with one descriptor and about 220 bytes of
/// stack for each level of a tree, a copy with two and 350: with the usual 8 MB of stack a hostile tree runs out of
/// descriptors first, which is an error like any other.
constexpr rlim_t MOST_DESCRIPTORS = 32768;

/// Raises the soft limit as far as the hard one and the stack allow; never lowers it.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, MOST_DESCRIPTORS));
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
