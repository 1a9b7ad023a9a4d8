// The fragments that follow an information line, each read from the place where it is expected. Stateless; any thread.
#pragma once

#include <string_view>

#include "cursor.h"
#include "record.h"

namespace TAVO::FileMigrateOrvane {

// Each steps over its fragment and fills in all but the path. Where something else stands there it gives false, with
// the cursor and the snapshot in any state.

bool TakeStat(Cursor& cursor, std::string_view path, StatSnapshot& stat);

/// What follows the path, resolved or not: " inode flags:...;" or the step that failed.
bool TakeFlags(Cursor& cursor, FlagsSnapshot& flags);

bool TakeProcess(Cursor& cursor, ProcessSnapshot& process);

bool TakeLabelResult(Cursor& cursor, LabelResult& result);

/// "llistxattr PATH:errno=...;"
bool TakeAttributeFailure(Cursor& cursor, std::string_view path, AttributeSnapshot& attribute);

/// "llistxattr PATH:key=", behind which the attribute follows.
bool TakeAttributeHead(Cursor& cursor, std::string_view path);

/// @param text  what follows the head, up to its ";"
bool ReadAttribute(std::string_view text, AttributeSnapshot& attribute);

/// Whether the bytes of the attribute can be told apart in another way, as another key with another value.
bool IsInDoubt(const AttributeSnapshot& attribute);

}  // namespace TAVO::FileMigrateOrvane
