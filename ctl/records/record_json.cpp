#include "record_json.h"

#include <array>
#include <cstdio>
#include <variant>

#include "explain.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

Json Object(const char* kind) {
    Json object;
    object["kind"] = kind;
    return object;
}

Json ObjectWithPath(const char* kind, const std::string& path) {
    Json object = Object(kind);
    PutText(object, "path", path);
    return object;
}

Json ToJson(const Reader::StatSnapshot& stat) {
    Json object = ObjectWithPath("stat", stat.path);
    PutError(object, stat.errorNumber);
    if (stat.errorNumber == 0) {
        object["text"] = Reader::StatInWords(stat);
        object["st_dev"] = stat.device;
        object["st_ino"] = stat.inode;
        object["st_mode"] = stat.mode;
        object["st_nlink"] = stat.links;
        object["st_uid"] = stat.uid;
        object["st_gid"] = stat.gid;
        object["st_rdev"] = stat.specialDevice;
        object["st_size"] = stat.size;
        object["st_blksize"] = stat.blockSize;
        object["st_blocks"] = stat.blocks;
    }
    return object;
}

Json ToJson(const Reader::AttributeSnapshot& attribute) {
    Json object = ObjectWithPath("attribute", attribute.path);
    if (attribute.key.empty()) {
        PutError(object, attribute.errorNumber);
        return object;
    }
    PutText(object, "key", attribute.key);
    if (attribute.value) {
        PutText(object, "value", *attribute.value);
    } else {
        object["value"] = nullptr;
    }
    return object;
}

Json ToJson(const Reader::FlagsSnapshot& flags) {
    Json object = ObjectWithPath("flags", flags.path);
    PutError(object, flags.errorNumber);
    if (flags.failedStep.empty()) {
        object["text"] = Reader::InodeFlagsInWords(flags.flags);
        object["flags"] = flags.flags;
    } else {
        object["step"] = flags.failedStep;
    }
    return object;
}

Json CapabilitySet(const std::string& digits) {
    Json set;
    PutText(set, "digits", digits);
    set["readings"] = Json::array();
    for (const Reader::CapabilityReading& reading : Reader::CapabilityReadings(digits)) {
        std::array<char, 24> bits{};
        (void)std::snprintf(bits.data(), bits.size(), "0x%016jx", static_cast<std::uintmax_t>(reading.bits));
        set["readings"].push_back({{"bits", bits.data()}, {"names", reading.names}});
    }
    return set;
}

Json ToJson(const Reader::ProcessSnapshot& process) {
    Json object = Object("process");
    PutError(object, process.errorNumber);
    if (process.errorNumber == 0) {
        object["euid"] = process.euid;
        object["egid"] = process.egid;
        object["effective"] = CapabilitySet(process.effective);
        object["permitted"] = CapabilitySet(process.permitted);
        object["inheritable"] = CapabilitySet(process.inheritable);
    }
    return object;
}

Json ToJson(const Reader::LabelResult& label) {
    Json object = Object("label");
    object["ret"] = label.ret;
    return object;
}

void PutTextOrNull(Json& object, const char* key, const std::string& text) {
    if (text.empty()) {
        object[key] = nullptr;
    } else {
        PutText(object, key, text);
    }
}

Json Refused(const Reader::Record& record) {
    if (record.refusedField.empty()) {
        return nullptr;
    }
    Json refused;
    PutText(refused, "field", record.refusedField);
    PutText(refused, "value", record.refusedValue);
    return refused;
}

}  // namespace

Json JsonLine(const Reader::Record& record) {
    Json object;
    object["time"] = TimeText(record.times, 'T');
    PutText(object, "type", record.type);
    PutText(object, "failure", Reader::FailureInWords(record.type));
    object["errno"] = record.errorNumber ? Json(*record.errorNumber) : Json();
    object["error"] = record.errorNumber ? Json(ErrorName(*record.errorNumber)) : Json();
    PutText(object, "src", record.src);
    PutText(object, "dst", record.dst);
    PutText(object, "user", record.user);
    PutText(object, "group", record.group);
    PutText(object, "perm", record.perm);
    PutText(object, "recurseOpt", record.recurseOpt);
    object["refused"] = Refused(record);
    return object;
}

Json ToJson(const Reader::LocatedRecord& located) {
    const Reader::Record& record = located.record;
    Json object = JsonLine(record);
    if (!located.host.empty()) {
        PutText(object, "host", located.host);
    }
    const Reader::Cause cause = Reader::LikelyCause(record);
    object["cause"] = cause.word.empty() ? Json() : Json(cause.word);
    PutTextOrNull(object, "cause_path", cause.path);
    PutTextOrNull(object, "likely_cause", cause.text);
    PutTextOrNull(object, "to_check", Reader::ToCheck(record));
    object["ambiguous"] = record.isAmbiguous;
    object["cut"] = Reader::HasCutPath(record);
    object["snapshots"] = Json::array();
    for (const Reader::Snapshot& snapshot : record.snapshots) {
        object["snapshots"].push_back(std::visit([](const auto& each) { return ToJson(each); }, snapshot));
    }
    PutText(object, "file", located.file);
    object["offset"] = record.offset;
    object["length"] = record.length;
    return object;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
