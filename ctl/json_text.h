// JSON output, one object a line. Paths and names are bytes, JSON texts are Unicode: a text that is not valid UTF-8
// is given with U+FFFD in place of the invalid bytes, and the bytes themselves in hexadecimal beside it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace TAVO::FileMigrateOrvane {

using Json = nlohmann::ordered_json;

/// Sets `key` to the text. Where the text is not valid UTF-8, `key` + "_hex" is set too: two lower-case digits for
/// each byte.
void PutText(Json& object, const std::string& key, std::string_view text);

/// Sets "errno" to the number and "error" to its name; null for 0, which is none.
void PutError(Json& object, int errorNumber);

/// The object as one line, with its newline, on standard output.
void PrintJsonLine(const Json& object);

}  // namespace TAVO::FileMigrateOrvane
