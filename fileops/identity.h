// Converts owner texts to numeric ids. No state; may run on any thread.
#pragma once

namespace TAVO::FileMigrateOrvane {

/// The user id for a text. A text that is empty or has only digits is a number, and any other text is a name. Only the
/// low 32 bits of a number count, and 0 must be written "0".
/// @return the id, or -1; the text 4294967295, and one too large for any number, also decode to -1, without an error
[[nodiscard]] int DecodeUid(const char* name, int& err, int recordKind);

/// The same for a group.
[[nodiscard]] int DecodeGid(const char* name, int& err, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
