#include "identity.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "failures.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Bytes for an entry of the user or group database. Fixed: a larger entry fails with ERANGE.
constexpr std::size_t ENTRY_SIZE = 1024;

constexpr int NOT_DECODED = -1;

/// Looks a name up with getpwnam_r or getgrnam_r. @return the call's error code; `id` stays empty if nothing was found
template <class Record, class Lookup>
int Find(Lookup lookup, unsigned int Record::*idField, const char* name, std::optional<int>& id) {
    Record record{};
    char buffer[ENTRY_SIZE] = {};
    Record* result = nullptr;
    const int code = lookup(name, &record, buffer, sizeof(buffer), &result);
    if (result != nullptr) {
        id = static_cast<int>(record.*idField);
    }
    return code;
}

bool IsNumeric(const char* text) {
    return text[std::strspn(text, "0123456789")] == '\0';
}

int DecodeNumber(Identity identity, const char* text, const Report& report) {
    const auto id = static_cast<unsigned int>(std::strtoul(text, nullptr, 10));
    if (id != 0 || std::strcmp(text, "0") == 0) {
        return static_cast<int>(id);
    }
    RefuseNumber(identity, text, errno, report);  // the conversion does not set errno: an earlier call did
    return NOT_DECODED;
}

int DecodeName(Identity identity, const char* name, const Report& report) {
    std::optional<int> id;
    const int code = identity == Identity::User ? Find(getpwnam_r, &passwd::pw_uid, name, id)
                                                : Find(getgrnam_r, &group::gr_gid, name, id);
    if (!id) {
        FailLookup(identity, name, code, report);
    }
    return id.value_or(NOT_DECODED);
}

int Decode(Identity identity, const char* name, const Report& report) {
    if (name == nullptr) {
        RefuseNullName(identity, report);
        return NOT_DECODED;
    }
    return IsNumeric(name) ? DecodeNumber(identity, name, report) : DecodeName(identity, name, report);
}

}  // namespace

int DecodeUid(const char* name, int& err, int recordKind) {
    return Decode(Identity::User, name, {err, recordKind});
}

int DecodeGid(const char* name, int& err, int recordKind) {
    return Decode(Identity::Group, name, {err, recordKind});
}

}  // namespace TAVO::FileMigrateOrvane
