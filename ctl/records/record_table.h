// Records as text: one line for each, optionally followed by its decoded snapshots. All bytes of records are escaped.
// Functions without state; call them after main has set the locale.
#pragma once

#include <cstddef>
#include <string>

#include "record.h"

namespace TAVO::FileMigrateOrvane::Ctl {

struct TableStyle {
    bool isColoured = false;
    bool isVerbose = false;         ///< with the snapshots and the likely cause
    std::size_t errorWidth = 9;     ///< columns for the error: ENOTEMPTY; a longer one shifts its line
    std::size_t failureWidth = 16;  ///< columns for the failed operation
};

/// Makes the columns of the style wide enough for the record, so that the lines after it have the same columns.
void Widen(TableStyle& style, const Reader::Record& record);

/// "EACCES"; "-" for a refused request, which has no error number.
std::string ErrorColumn(const Reader::Record& record);

/// The record's paths and the other fields of its line: "/data/a → /data/b", "/data/a user=0 group=0".
std::string ObjectsColumn(const Reader::Record& record);

/// The record's line and, if wanted, its details; each line ends with a newline.
std::string RecordInWords(const Reader::Record& record, const TableStyle& style);

}  // namespace TAVO::FileMigrateOrvane::Ctl
