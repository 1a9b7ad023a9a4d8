#include "json_text.h"

#include <cstdio>
#include <cstdlib>

#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

std::string Hexadecimal(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4U];
        text += digits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return text;
}

std::string FromHexadecimal(const std::string& digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16));
    }
    return bytes;
}

std::string Line(const Json& value) {
    return value.dump(-1, ' ', /*ensure_ascii=*/true, Json::error_handler_t::replace);
}

}  // namespace

void PutText(Json& object, const std::string& key, std::string_view text) {
    object[key] = text;
    // The library has no check for valid UTF-8, but it writes an invalid text differently.
    if (Json::parse(Line(object[key])).get_ref<const std::string&>() != text) {
        object[key + "_hex"] = Hexadecimal(text);
    }
}

std::string TextOf(const Json& object, const std::string& key) {
    const auto bytes = object.find(key + "_hex");
    return bytes != object.end() ? FromHexadecimal(bytes->get<std::string>()) : object.at(key).get<std::string>();
}

void PutError(Json& object, int errorNumber) {
    object["errno"] = errorNumber;
    object["error"] = errorNumber == 0 ? Json() : Json(ErrorName(errorNumber));
}

void PrintJsonLine(const Json& object) {
    const std::string line = Line(object) + "\n";
    (void)std::fwrite(line.data(), 1, line.size(), stdout);
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
