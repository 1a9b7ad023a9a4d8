// Finds the records of a request that failed. Used by one thread.
#pragma once

#include <array>
#include <string>

#include "answer.h"
#include "record_files.h"

namespace TAVO::FileMigrateOrvane::Ctl {

struct Arguments;

/// Where the record files end, and the time, before a request is sent.
struct RecordMark {
    RecordMark();

    std::string times;  ///< 14 digits of local time
    std::array<off_t, RECORD_FILES.size()> sizes{};
};

/// Adds the likely cause of the first record to the answer, and a hint with the command that shows all records of the
/// request. Adds nothing if there are no records.
/// @param before  taken before the request was sent
void AddCause(Answer& answer, const Arguments& arguments, const RecordMark& before);

}  // namespace TAVO::FileMigrateOrvane::Ctl
