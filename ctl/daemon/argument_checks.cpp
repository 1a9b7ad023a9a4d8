#include "argument_checks.h"

#include <sys/un.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

// The longest texts that fit into a request, in bytes.
constexpr std::size_t LONGEST_PATH = 4095;
constexpr std::size_t LONGEST_NAME = 35;
constexpr std::size_t LONGEST_MODE = 15;

std::string CheckLength(const char* what, const std::string& text, std::size_t longest) {
    constexpr std::size_t shown = 40;  // how much of a text that is too long is shown
    return text.size() <= longest ? std::string()
                                  : std::string(what) + " is longer than " + std::to_string(longest) +
                                        " bytes: " + Printable(text.substr(0, shown)) + "...";
}

/// The daemon would cut a larger number, and take the largest one as "do not change". The library refuses it too; this
/// message names the argument as the help does.
std::string CheckNumber(const char* what, const std::string& text) {
    constexpr std::uint64_t largest = 4294967294;
    std::uint64_t number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = end == text.data() + text.size();
    return isNumber && (failure != std::errc() || number > largest)
               ? std::string(what) + " " + text + " is larger than " + std::to_string(largest)
               : std::string();
}

}  // namespace

std::string MakeAbsolute(std::string& path) {
    if (path.empty()) {
        return "the path is empty";
    }
    if (path.find("../") != std::string::npos) {
        return Printable(path) + ": the daemon refuses paths that contain \"../\"";
    }
    if (path.front() != '/') {
        std::error_code error;
        const std::string directory = std::filesystem::current_path(error).string();
        if (error) {
            return Printable(path) + ": cannot find the working directory: " + error.message();
        }
        path = directory + (directory.ends_with('/') ? "" : "/") + path;
    }
    return CheckLength("the path", path, LONGEST_PATH);
}

std::string MakeAbsoluteBelowRoot(std::string& path) {
    std::string complaint = MakeAbsolute(path);
    if (complaint.empty() && path.find_first_not_of("/.") == std::string::npos) {
        complaint = Printable(path) + ": refusing to work on the root directory";
    }
    return complaint;
}

std::string CheckMode(std::string& mode) {
    if (mode.find('-') != std::string::npos) {
        return Printable(mode) + ": the daemon refuses a mode that contains \"-\"; use octal digits such as 0755";
    }
    if (mode.empty() || mode.find_first_not_of("01234567") != std::string::npos) {
        return Printable(mode) + ": a mode consists of octal digits, such as 0755";
    }
    if (mode.find_first_not_of('0') == std::string::npos) {
        return "the mode must not be 0";
    }
    return CheckLength("the mode", mode, LONGEST_MODE);
}

std::string SplitOwner(const std::string& owner, std::string& user, std::string& group) {
    const std::size_t colon = owner.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == owner.size()) {
        return Printable(owner) + ": an owner has the form USER:GROUP; both are required";
    }
    user = owner.substr(0, colon);
    group = owner.substr(colon + 1);
    for (const std::string& complaint :
         {CheckLength("the user", user, LONGEST_NAME), CheckLength("the group", group, LONGEST_NAME),
          CheckNumber("the user", user), CheckNumber("the group", group)}) {
        if (!complaint.empty()) {
            return complaint;
        }
    }
    return {};
}

std::string CheckSocketPath(const std::string& path) {
    constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    return path.empty() || path.size() > longest
               ? "the path of a socket must have 1 to " + std::to_string(longest) + " bytes"
               : std::string();
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
