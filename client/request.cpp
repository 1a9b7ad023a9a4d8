#include "request.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace TAVO::FileMigrateClient {
namespace {

/// Copies a text into its field, which is all zero. Returns why it cannot; empty on success.
template <std::size_t Width>
std::string PutText(const char* name, std::string_view text, char (&field)[Width]) {
    if (text.find('\0') != std::string_view::npos) {
        return std::string(name) +
               " holds a NUL byte";  // the rest would be lost, and the path would name another object
    }
    if (text.size() >= Width) {
        return std::string(name) + " is longer than " + std::to_string(Width - 1) + " bytes";
    }
    if (text.find("../") != std::string_view::npos) {
        return std::string(name) + " contains \"../\"";
    }
    std::copy(text.begin(), text.end(), field);
    return {};
}

/// The daemon would cut a larger number to 32 bits, and take the largest one as "do not change".
std::string CheckNumber(const char* name, std::string_view text) {
    constexpr std::uint64_t largest = 4294967294;
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = !text.empty() && end == text.data() + text.size();
    return isNumber && (error != std::errc() || number > largest)
               ? std::string(name) + " is larger than " + std::to_string(largest)
               : std::string();
}

std::string PutFields(const Request& request, FileMigrateRcvMsg& record) {
    for (const std::string& complaint :
         {PutText("src", request.src, record.src), PutText("dst", request.dst, record.dst),
          PutText("user", request.user, record.user), PutText("group", request.group, record.group),
          PutText("perm", request.perm, record.perm), CheckNumber("user", request.user),
          CheckNumber("group", request.group)}) {
        if (!complaint.empty()) {
            return complaint;
        }
    }
    if (request.perm.find('-') != std::string_view::npos) {
        return "perm contains \"-\"";
    }
    if (request.recurseOpt < 0 || request.recurseOpt > 2) {
        return "recurseOpt is " + std::to_string(request.recurseOpt) + ", not 0, 1 or 2";
    }
    record.recurseOpt = request.recurseOpt;
    return {};
}

}  // namespace

Failure EncodeRequest(const Request& request, FileMigrateRcvMsg& record) {
    record = {};
    record.cmd = static_cast<std::int32_t>(request.cmd);
    std::string complaint = PutFields(request, record);
    if (complaint.empty()) {
        return {};
    }
    return {ClientErrc::InvalidRequest, std::move(complaint)};
}

}  // namespace TAVO::FileMigrateClient
