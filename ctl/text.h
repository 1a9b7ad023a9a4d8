// How orvanectl writes what it has to tell to a person: names of errors, sizes, bytes that are not text, colours.
// Functions without state, after main has set the locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TAVO::FileMigrateOrvane {

/// "EACCES"; a number that has no name is written as a number.
std::string ErrorName(int errorNumber);

/// "EACCES (Permission denied)"; says so where there is no number.
std::string ErrorText(int errorNumber);

/// The bytes as they may be shown: what the locale can print as it is, everything else, a control character above
/// all and one that turns the direction of text, as "\xNN", and a backslash as "\\", so that the bytes can be told
/// from the text.
std::string Printable(std::string_view bytes);

/// Kilobytes (1024 bytes) as du -h has them: "0", "4.0K", "35M".
std::string HumanSize(std::uint64_t kilobytes);

/// Whether what goes to this descriptor may be coloured: it is a terminal, and NO_COLOR is not set (no-color.org).
bool MayColour(int fd);

enum class Tone { Plain, Strong, Bad, Warning, Faint };

/// The text with the escape sequences of its tone around it; as it is when `isColoured` is false.
std::string Toned(Tone tone, std::string_view text, bool isColoured);

/// "orvanectl: WHAT: WHY" on standard error.
void Complain(std::string_view what, std::string_view why);

}  // namespace TAVO::FileMigrateOrvane
