// Shows standard output in a pager while it is a terminal, as journalctl does. Used by the main thread, before it has
// written anything.
#pragma once

#include <sys/types.h>

namespace TAVO::FileMigrateOrvane::Ctl {

class Pager {
public:
    Pager() = default;
    ~Pager() { End(); }
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

    /// Redirects standard output to the command $PAGER, or to less. Does nothing if standard output is no terminal,
    /// or if $PAGER is empty or cat. Nothing of what is shown becomes part of a command line.
    void Start();

    /// Waits until the user leaves the pager, and writes to the terminal again.
    void End();

private:
    pid_t process = -1;
    int terminal = -1;  ///< the original standard output
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
