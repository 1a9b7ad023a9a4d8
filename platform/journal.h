// The platform log's way to the journal. Any thread may call these functions.
#pragma once

#include "kelvo_print.h"
#include "log_text.h"

namespace TAVO::FileMigrateOrvane::Detail {

/// Whether standard error is connected to the journal. The lines then go to the journal's own socket instead.
[[nodiscard]] bool IsLoggedToJournal();

/// Whether the journal takes lines of this kind. It takes routine lines only if $FILE_MIGRATE_LOG_ALL is "1".
[[nodiscard]] bool IsForJournal(LogKind kind);

/// Sends a line as one entry. It waits a moment for a journal that is busy, but not for one that has stopped.
/// @param message  the line, without control characters
/// @return whether the journal took it
bool SendToJournal(const LogSite& site, std::string_view message);

}  // namespace TAVO::FileMigrateOrvane::Detail
