// Reads the snapshots that follow an information line, each at the position where it is expected. Functions without
// state; any thread may call them.
#pragma once

#include <string_view>

#include "cursor.h"
#include "record.h"

namespace TAVO::FileMigrateOrvane::Reader {

// Each function consumes one snapshot and fills in everything but the path. It returns false if the text is not that
// snapshot; the cursor and the snapshot then have unspecified values.

bool TakeStat(Cursor& cursor, std::string_view path, StatSnapshot& stat);

/// The text after the path, resolved or not: " inode flags:...;" or the step that failed.
bool TakeFlags(Cursor& cursor, FlagsSnapshot& flags);

bool TakeProcess(Cursor& cursor, ProcessSnapshot& process);

bool TakeLabelResult(Cursor& cursor, LabelResult& result);

/// "llistxattr PATH:errno=...;"
bool TakeAttributeFailure(Cursor& cursor, std::string_view path, AttributeSnapshot& attribute);

/// "llistxattr PATH:key="; the attribute follows it.
bool TakeAttributeHead(Cursor& cursor, std::string_view path);

/// @param text  the bytes between the head and the ";"
bool ReadAttribute(std::string_view text, AttributeSnapshot& attribute);

/// Whether the same bytes could be another key with another value.
bool IsInDoubt(const AttributeSnapshot& attribute);

}  // namespace TAVO::FileMigrateOrvane::Reader
