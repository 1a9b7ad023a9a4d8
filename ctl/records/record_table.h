// Records as a person reads them: a line for each, with the snapshots decoded below it where that is wanted. All
// bytes of records are made printable. Functions without state, after main has set the locale.
#pragma once

#include <string>

#include "record.h"

namespace TAVO::FileMigrateOrvane {

struct TableStyle {
    bool isColoured = false;
    bool isVerbose = false;  ///< snapshots and the likely cause, too
};

/// "EACCES"; "-" for a refused request, which has none.
std::string ErrorColumn(const Record& record);

/// The record's paths and whatever else its line fills: "/data/a → /data/b", "/data/a user=0 group=0".
std::string ObjectsColumn(const Record& record);

/// The record's line, and what belongs below it, each line with its newline.
std::string RecordInWords(const Record& record, const TableStyle& style);

}  // namespace TAVO::FileMigrateOrvane
