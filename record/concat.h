// Joining the pieces of a record's text. No state; any thread.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace TAVO::FileMigrateOrvane {

/// The pieces one after the other.
[[nodiscard]] inline std::string Concat(std::initializer_list<std::string_view> pieces) {
    std::string text;
    for (const std::string_view piece : pieces) {
        text += piece;
    }
    return text;
}

}  // namespace TAVO::FileMigrateOrvane
