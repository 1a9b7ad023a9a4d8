#include "interrupt.h"

#include <unistd.h>

#include <csignal>
#include <utility>

namespace TAVO::FileMigrateOrvane {
namespace {

// The text that the handler writes. It is set before the handler is and unset after it.
const char* noticeBytes = nullptr;
std::size_t noticeSize = 0;

extern "C" void WriteNotice(int signalNumber) {
    (void)!write(STDERR_FILENO, noticeBytes, noticeSize);
    (void)raise(signalNumber);  // delivered at the return, with the default action: see SA_RESETHAND
}

}  // namespace

InterruptNotice::InterruptNotice(std::string noticeText) : text(std::move(noticeText)) {
    struct sigaction now {};
    if (sigaction(SIGINT, nullptr, &now) != 0 || now.sa_handler == SIG_IGN) {
        return;
    }
    noticeBytes = text.data();
    noticeSize = text.size();
    now = {};
    now.sa_handler = WriteNotice;
    now.sa_flags = static_cast<int>(SA_RESETHAND);
    (void)sigaction(SIGINT, &now, nullptr);
}

InterruptNotice::~InterruptNotice() {
    if (noticeBytes != nullptr) {
        (void)std::signal(SIGINT, SIG_DFL);
        noticeBytes = nullptr;
    }
}

}  // namespace TAVO::FileMigrateOrvane
