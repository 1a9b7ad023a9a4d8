// JSON output, one object per line, in ASCII. Paths and names are bytes but JSON texts are Unicode. In a text that is
// not valid UTF-8, U+FFFD replaces the invalid bytes, and a second key holds the bytes in hexadecimal.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace TAVO::FileMigrateOrvane::Ctl {

using Json = nlohmann::ordered_json;

/// Sets `key` to the text. If the text is not valid UTF-8, also sets `key` + "_hex": two lower-case digits per byte.
void PutText(Json& object, const std::string& key, std::string_view text);

/// The text that PutText set, whether or not it is valid UTF-8.
/// @throw Json::exception  if there is no such text
std::string TextOf(const Json& object, const std::string& key);

/// Sets "errno" to the number and "error" to its name, or to null for 0.
void PutError(Json& object, int errorNumber);

/// Prints the object as one line on standard output. Everything above 0x7e is escaped, so that no control or direction
/// character reaches a terminal.
void PrintJsonLine(const Json& object);

}  // namespace TAVO::FileMigrateOrvane::Ctl
