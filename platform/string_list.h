// A list of strings in one text: a listing of a million names needs no allocation for each. It belongs to one thread.
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

    /// Appends a string, given in one or two parts.
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

    /// All strings, with a "/" behind each.
    [[nodiscard]] std::string_view Joined() const { return joined; }
    /// Where each string's "/" ends in that text.
    [[nodiscard]] const std::vector<std::size_t>& Ends() const { return ends; }

private:
    std::string joined;
    std::vector<std::size_t> ends;
};

}  // namespace TAVO::FileMigrateOrvane
