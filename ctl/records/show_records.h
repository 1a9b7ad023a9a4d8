// orvanectl records, after its command line was parsed: prints the selected records of all files in order on standard
// output, and reports on standard error what could not be read. Called once, by the main thread.
#pragma once

#include "action.h"
#include "record_files.h"
#include "records_options.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// Reports what could not be read since the last call.
/// @return false if a whole file could not be read
bool ReportTroubles(Reader::RecordStream& stream);

/// Prints the records. Failed if a file could not be read; bytes that belong to no record are no failure.
ExitStatus ShowRecords(const RecordsOptions& options);

/// Prints the last ten records and then each new one, until the reader of standard output ends or a signal comes. Reads
/// the rotated files of each file too.
ExitStatus FollowRecords(const RecordsOptions& options);

}  // namespace TAVO::FileMigrateOrvane::Ctl
