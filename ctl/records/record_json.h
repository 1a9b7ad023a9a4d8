// Records as JSON objects. Their keys are read by programs: docs/records.md lists them, and none changes its meaning.
// Functions without state.
#pragma once

#include "json_text.h"
#include "record.h"
#include "record_input.h"

namespace TAVO::FileMigrateOrvane {

/// What names a record: "time", "type", "failure", "errno", "error", paths and the other fields of its first line.
Json JsonLine(const Record& record);

/// The whole record, with its snapshots and where it stands.
Json ToJson(const LocatedRecord& located);

}  // namespace TAVO::FileMigrateOrvane
