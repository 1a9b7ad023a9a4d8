// Records as JSON objects. Programs read the keys, so their meaning must not change; docs/records.md lists them.
// Functions without state.
#pragma once

#include "json_text.h"
#include "record.h"
#include "record_input.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// The record without its snapshots: "time", "type", "failure", "errno", "error", the paths and the other fields.
Json JsonLine(const Reader::Record& record);

/// The whole record, with its snapshots and its position.
Json ToJson(const Reader::LocatedRecord& located);

}  // namespace TAVO::FileMigrateOrvane::Ctl
