// One line on standard error that shows how many records have been read, for the files of many machines. Used by one
// thread.
#pragma once

#include <chrono>
#include <cstddef>

#include "record_files.h"

namespace TAVO::FileMigrateOrvane::Ctl {

class ReadingProgress {
public:
    explicit ReadingProgress(bool shown) : isShown(shown) {}
    ~ReadingProgress();
    ReadingProgress(const ReadingProgress&) = delete;
    ReadingProgress& operator=(const ReadingProgress&) = delete;

    /// Call it after each record. Prints a line a few times a second, the first one after a while.
    void Count(const Reader::RecordStream& stream);

private:
    using Clock = std::chrono::steady_clock;

    bool isShown;
    bool hasPrinted = false;
    std::size_t records = 0;
    Clock::time_point next = Clock::now() + std::chrono::milliseconds(500);
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
