#include <cerrno>
#include <string_view>

#include "causes.h"

namespace TAVO::FileMigrateOrvane {

namespace {

Cause NotGiven(const std::string& what) {
    return "no " + what + " was given";
}

Cause WrongOwner(const Record& record, const std::string& what, const std::string& name) {
    if (name.empty()) {
        return NotGiven(what);
    }
    if (record.type.ends_with("_STRTOUL")) {
        return "the " + what + " number " + name + " comes to 0, which has to be written \"0\"";
    }
    if (record.errorNumber == ERANGE) {
        return "the entry of the " + what + " " + name + " is too long";
    }
    return record.errorNumber == ENOENT ? "there is no " + what + " " + name : "";
}

}  // namespace

Cause WrongRequest(const Record& record) {
    const std::string& type = record.type;
    if (type == "PARA_EMPTY") {
        return NotGiven(record.user.empty()    ? "user"
                        : record.group.empty() ? "group"
                                               : "mode") +
               ", and all are needed";
    }
    if (type == "TRANSFORM_MODE") {
        return record.perm.empty() ? NotGiven("mode") : "\"" + record.perm + "\" is no octal mode, or is 0";
    }
    if (type.starts_with("UID_")) {
        return WrongOwner(record, "user", record.user);
    }
    if (type.starts_with("GID_")) {
        return WrongOwner(record, "group", record.group);
    }
    return type.starts_with("INVALID_RECURSEOPT_")
               ? "the recursion option " + record.recurseOpt + " is neither 1 (the path only) nor 2 (all below it)"
               : "";
}

Cause WhyRefused(const Record& record) {
    constexpr struct {
        std::string_view type;
        std::string_view before;
        std::string_view behind;
    } REFUSALS[] = {
        {"RECVBUFSIZE", "the request had ", " bytes: one has 8288, sent at once"},
        {"INVALID_CMD", "there is no command ", ""},
        {"INVALID_MODE", "the mode ", " holds a \"-\""},
        {"INVALID_RECURSEOPT", "there is no recursion option ", ""},
    };
    if (record.type == "RECVBUFSIZE" && record.refusedValue == "-1") {
        return "the request could not be received";
    }
    if (record.type == "INVALID_STR") {
        const std::string field = record.refusedField == "dts" ? "destination" : record.refusedField;
        return "the field " + field + " has no end within its width, or holds \"../\"";
    }
    for (const auto& refusal : REFUSALS) {
        if (record.type == refusal.type) {
            return std::string(refusal.before).append(record.refusedValue).append(refusal.behind);
        }
    }
    return {};
}

}  // namespace TAVO::FileMigrateOrvane
