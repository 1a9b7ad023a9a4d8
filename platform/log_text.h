// A text that the log composes: a line, or the fields of a journal entry. One thread uses it.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>

namespace TAVO::FileMigrateOrvane::Detail {

/// Grows by allocation. If memory runs out, the text is cut.
class LogText {
public:
    LogText() = default;  // defined, so that the text's bytes are not cleared

    void Append(std::string_view piece) {
        const std::size_t wanted = length + piece.size() + 1;  // one byte is reserved for the end of the line
        if (wanted > capacity) {
            Reserve(std::max(wanted, 2 * capacity));
        }
        const std::size_t fitting = std::min(piece.size(), capacity - length - 1);
        std::memcpy(text + length, piece.data(), fitting);
        length += fitting;
    }

    template <class Number>
    void AppendNumber(Number number, int base = 10) {
        char digits[32];
        Append({digits, std::to_chars(std::begin(digits), std::end(digits), number, base).ptr});
    }

    /// Appends a text, cut to the length of the longest path. The texts of a request are shorter, but the path of an
    /// entry deep in a tree can be longer.
    void AppendPath(std::string_view path);

    /// Replaces control characters by "\x0a" and the like. They can only come from a client's text and could forge a
    /// line.
    void EscapeControls();

    [[nodiscard]] std::string_view View() const { return {text, length}; }

    /// The text with a newline at its end.
    std::string_view WithNewline() {
        text[length] = '\n';
        return {text, length + 1};
    }

private:
    /// Bytes that need no allocation. Only texts with very long paths are longer.
    static constexpr std::size_t USUAL = 2048;

    /// Makes room for `size` bytes. False, with the text unchanged, if there is no memory.
    bool Reserve(std::size_t size);

    char usual[USUAL];
    std::unique_ptr<char[]> large;
    char* text = usual;
    std::size_t capacity = sizeof(usual);
    std::size_t length = 0;
};

}  // namespace TAVO::FileMigrateOrvane::Detail
