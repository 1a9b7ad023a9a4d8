// orvanectl records, after its command line was parsed: prints the selected records of all files in order on standard
// output, and reports on standard error what could not be read. Called once, by the main thread.
#pragma once

#include <string>
#include <vector>

#include "action.h"
#include "record_files.h"
#include "record_filter.h"

namespace TAVO::FileMigrateOrvane::Ctl {

struct RecordsOptions {
    std::vector<std::string> files;  ///< may contain STANDARD_INPUT; empty: all files that the daemon writes
    RecordFilter filter;
    bool isVerbose = false;
    bool isJson = false;
    bool isSummary = false;
    std::string by{};                        ///< property to count by; see RecordSummary
    std::vector<std::string> directories{};  ///< copied record directories, read instead of the daemon's files
    std::string hostFrom{};                  ///< file in each directory that holds the machine's name
    std::size_t lastCount = 0;               ///< how many of the last records to show; 0 for all
    bool isReversed = false;                 ///< newest first
};

/// Reports what could not be read since the last call.
/// @return false if a whole file could not be read
bool ReportTroubles(Reader::RecordStream& stream);

/// Prints the records. Failed if a file could not be read; bytes that belong to no record are no failure.
ExitStatus ShowRecords(const RecordsOptions& options);

/// Prints the last ten records and then each new one, until the reader of standard output ends or a signal comes. Reads
/// the rotated files of each file too.
ExitStatus FollowRecords(const RecordsOptions& options);

}  // namespace TAVO::FileMigrateOrvane::Ctl
