// A list of strings in a single text, so that a listing of a million names does not need a million allocations. Used by
// one thread.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace TAVO::FileMigrateOrvane {

class StringList {
public:
    StringList() = default;
    StringList(std::initializer_list<std::string_view> strings) {
        for (const std::string_view string : strings) {
            Add(string);
        }
    }

    /// Appends a string that is given in one or two parts.
    void Add(std::string_view string, std::string_view rest = {}) {
        joined += string;
        joined += rest;
        joined += '/';
        ends.push_back(joined.length());
    }

    void Clear() {
        joined.clear();
        ends.clear();
    }

    /// All strings, each followed by "/".
    [[nodiscard]] std::string_view Joined() const { return joined; }
    /// For each string, the position in that text after its "/".
    [[nodiscard]] const std::vector<std::size_t>& Ends() const { return ends; }

private:
    std::string joined;
    std::vector<std::size_t> ends;
};

}  // namespace TAVO::FileMigrateOrvane
