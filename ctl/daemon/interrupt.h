// What an interrupted operation says: Ctrl-C ends orvanectl, not the daemon's work. At most one at a time, for it is
// the process's signal handler; made and ended by the main thread.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

class InterruptNotice {
public:
    /// From now on SIGINT writes the text to standard error, and then ends the process as it always does. A SIGINT that
    /// was ignored stays ignored.
    explicit InterruptNotice(std::string noticeText);
    ~InterruptNotice();
    InterruptNotice(const InterruptNotice&) = delete;
    InterruptNotice& operator=(const InterruptNotice&) = delete;

private:
    const std::string text;  ///< read by the handler
};

}  // namespace TAVO::FileMigrateOrvane
