// How orvanectl writes for people: names of errors, times, sizes, unprintable bytes, colours. Functions without state;
// call them after main has set the locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TAVO::FileMigrateOrvane::Ctl {

/// "EACCES"; the number itself if it has no name.
std::string ErrorName(int errorNumber);

/// "EACCES (Permission denied)"; for 0, a sentence that the daemon gave no error number.
std::string ErrorText(int errorNumber);

/// The bytes in a form that is safe to show. Characters that the locale can print stay; all others, such as control
/// characters and those that change the text direction, become "\xNN". A backslash becomes "\\".
std::string Printable(std::string_view bytes);

/// Kilobytes (1024 bytes) in the style of du -h: "0", "4.0K", "35M".
std::string HumanSize(std::uint64_t kilobytes);

/// "2026-11-21 10:15:30" for the 14 digits of a record's time; a text of another length unchanged.
/// @param between  the character between date and time
std::string TimeText(const std::string& times, char between);

/// Whether output to this descriptor may be coloured: it is a terminal and NO_COLOR is not set (no-color.org).
bool MayColour(int fd);

enum class Tone { Plain, Strong, Bad, Warning, Faint };

/// The text inside the escape sequences of its tone; unchanged if `isColoured` is false.
std::string Toned(Tone tone, std::string_view text, bool isColoured);

/// "orvanectl: WHAT: WHY" on standard error.
void Complain(std::string_view what, std::string_view why);

}  // namespace TAVO::FileMigrateOrvane::Ctl
