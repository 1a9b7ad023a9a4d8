#include "reading_progress.h"

#include <cstdio>

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr std::size_t RECORDS_PER_LOOK = 256;  // records between two looks at the clock

}  // namespace

void ReadingProgress::Count(const Reader::RecordStream& stream) {
    if (!isShown || ++records % RECORDS_PER_LOOK != 0 || Clock::now() < next) {
        return;
    }
    next = Clock::now() + std::chrono::milliseconds(200);
    hasPrinted = true;
    (void)std::fprintf(stderr, "\rreading: %zu records", records);
    if (const std::size_t finished = stream.FinishedFiles(); finished > 0) {
        (void)std::fprintf(stderr, ", %zu %%", finished * 100 / stream.Files());
    }
}

ReadingProgress::~ReadingProgress() {
    if (hasPrinted) {
        (void)std::fprintf(stderr, "\r%48s\r", "");
    }
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
