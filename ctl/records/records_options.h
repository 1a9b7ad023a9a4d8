// What the command line of orvanectl records selects. Plain data.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "record_filter.h"

namespace TAVO::FileMigrateOrvane::Ctl {

struct RecordsOptions {
    std::vector<std::string> files;  ///< may contain STANDARD_INPUT; empty: all files that the daemon writes
    RecordFilter filter;
    bool isVerbose = false;
    bool isJson = false;
    bool isSummary = false;
    std::string by{};                        ///< property to count by; see RecordSummary
    std::string against{};                   ///< an earlier summary or record directory to compare with; see `by`
    std::vector<std::string> directories{};  ///< copied record directories, read instead of the daemon's files
    std::string hostFrom{};                  ///< file in each directory that holds the machine's name
    std::size_t lastCount = 0;               ///< how many of the last records to show; 0 for all
    bool isReversed = false;                 ///< newest first
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
