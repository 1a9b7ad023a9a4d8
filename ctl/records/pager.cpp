#include "pager.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

/// For a system without less.
constexpr const char* USUAL_PAGER = "command -v less >/dev/null && exec less; exec cat";

// NOLINTBEGIN(concurrency-mt-unsafe): one thread, and the child of a fork
const char* Command() {
    const char* pager = std::getenv("PAGER");
    return pager == nullptr ? USUAL_PAGER : pager;
}

[[noreturn]] void Become(const char* command, int input) {
    (void)dup2(input, STDIN_FILENO);
    (void)setenv("LESS", "FRSX", /*overwrite=*/0);
    // The pager runs as root, perhaps for a user whom sudo permits only orvanectl: it must not start commands.
    (void)setenv("LESSSECURE", "1", /*overwrite=*/1);
    (void)execl("/bin/sh", "sh", "-c", command, nullptr);
    _exit(127);
}
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace

void Pager::Start() {
    const char* command = Command();
    int ends[2];
    if (isatty(STDOUT_FILENO) == 0 || *command == '\0' || std::string_view(command) == "cat" ||
        pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    process = fork();
    if (process == 0) {
        Become(command, ends[0]);
    }
    if (process > 0) {
        terminal = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        (void)dup2(ends[1], STDOUT_FILENO);
        (void)std::signal(SIGINT, SIG_IGN);  // Ctrl-C is meant for the pager, which still needs the terminal
    }
    (void)close(ends[0]);
    (void)close(ends[1]);
}

void Pager::End() {
    if (process <= 0) {
        return;
    }
    (void)std::fflush(stdout);
    (void)dup2(terminal, STDOUT_FILENO);
    (void)close(terminal);
    while (waitpid(process, nullptr, 0) == -1 && errno == EINTR) {
    }
    process = -1;
    (void)std::signal(SIGINT, SIG_DFL);
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
