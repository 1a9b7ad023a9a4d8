// What orvanectl records does once its command line has been read: the records that are wanted, from all files in
// order, on standard output; what could not be read on standard error. For main's thread, once.
#pragma once

#include <string>
#include <vector>

#include "exit_status.h"
#include "record_filter.h"

namespace TAVO::FileMigrateOrvane {

struct RecordsOptions {
    std::vector<std::string> files;  ///< STANDARD_INPUT is one; none: all that the daemon writes
    RecordFilter filter;
    bool isVerbose = false;
    bool isJson = false;
    bool isSummary = false;
};

class RecordStream;

/// Tells what could not be read since the last call. False when a whole file could not.
bool TellTroubles(RecordStream& stream);

/// All records there are. Failed when a file could not be read; bytes that are no record are no failure.
ExitStatus ShowRecords(const RecordsOptions& options);

/// The last ten records, then each new one as it is written, until nobody reads any more or a signal comes. A file
/// stands for the ones it is rotated into, too.
ExitStatus FollowRecords(const RecordsOptions& options);

}  // namespace TAVO::FileMigrateOrvane
