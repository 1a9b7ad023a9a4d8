// file_migrate_orvane does file-system work for an operating-system upgrade. It has no command line, no configuration
// and no environment variables of its own. Its exit status is always 0.
#include <sys/resource.h>

#include <algorithm>
#include <csignal>

#include "socket_server.h"

namespace {

/// The most descriptors that the daemon uses. A walk recurses: each level of a tree takes one descriptor and about 220
/// bytes of stack, in a copy two descriptors and 350 bytes. With the usual 8 MB of stack a hostile tree exhausts the
/// descriptors first, and that is an ordinary error.
constexpr rlim_t MOST_DESCRIPTORS = 32768;

/// Raises the soft limit as far as the hard limit and the stack allow; never lowers it.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, MOST_DESCRIPTORS));
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

int main() {
    // A send to a client that has hung up must fail instead of ending the daemon.
    (void)std::signal(SIGPIPE, SIG_IGN);  // cannot fail for this signal
    RaiseDescriptorLimit();
    TAVO::FileMigrateOrvane::FileMigrateSocketServer server;
    server.CreateServer();
    return 0;
}
