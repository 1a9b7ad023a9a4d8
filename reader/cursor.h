// A position in a text. Each Take method consumes one expected item at the position. A value; used by one thread.
#pragma once

#include <charconv>
#include <cstddef>
#include <string_view>
#include <system_error>

namespace TAVO::FileMigrateOrvane::Reader {

class Cursor {
public:
    explicit Cursor(std::string_view all, std::size_t begin = 0) : text(all), position(begin) {}

    [[nodiscard]] std::size_t Position() const { return position; }
    [[nodiscard]] bool IsAt(std::string_view expected) const { return Rest().starts_with(expected); }

    // Each method moves past what it took. If the text differs, it returns false; Take then does not move.
    bool Take(std::string_view expected) {
        const bool isThere = IsAt(expected);
        position += isThere ? expected.size() : 0;
        return isThere;
    }

    template <class Number>
    bool TakeNumber(Number& number) {
        const auto [end, failure] = std::from_chars(Rest().data(), text.data() + text.size(), number);
        position = static_cast<std::size_t>(end - text.data());
        return failure == std::errc();
    }

    /// The longest run of the given characters here, at most `most` of them.
    std::string_view TakeAll(std::string_view characters, std::size_t most) {
        const std::string_view rest = Rest().substr(0, most);
        const std::string_view taken = rest.substr(0, rest.find_first_not_of(characters));
        position += taken.size();
        return taken;
    }

    /// Skips newlines; an editor may have added them after a ";".
    void SkipNewlines() { (void)TakeAll("\n", std::string_view::npos); }

private:
    [[nodiscard]] std::string_view Rest() const { return text.substr(position); }

    std::string_view text;
    std::size_t position;
};

}  // namespace TAVO::FileMigrateOrvane::Reader
