// What the command line of orvanectl records selects. Plain data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "record_filter.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// How a record is shown. A summary has no verbose form.
enum class Form : std::uint8_t { Short, Verbose, JsonLines, Html };

struct RecordsOptions {
    std::vector<std::string> files;  ///< may contain STANDARD_INPUT; empty: all files that the daemon writes
    RecordFilter filter;
    Form form = Form::Short;
    bool isSummary = false;
    std::string by{};                        ///< property to count by; see RecordSummary
    std::string against{};                   ///< an earlier summary or record directory to compare with; see `by`
    std::vector<std::string> directories{};  ///< copied record directories, read instead of the daemon's files
    std::string hostFrom{};                  ///< file in each directory that holds the machine's name
    std::size_t lastCount = 0;               ///< how many of the last records to show; 0 for all
    bool isReversed = false;                 ///< newest first
    std::string colour = "auto";             ///< "always", "never" or "auto", which asks the terminal and NO_COLOR
    bool usesPager = true;                   ///< for text on a terminal
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
