#include "identity.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "error_record.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Bytes for an entry of the user or group database. Fixed: a larger entry fails with ERANGE.
constexpr std::size_t ENTRY_SIZE = 1024;

constexpr int NOT_DECODED = -1;

/// Looks a name up with getpwnam_r or getgrnam_r. @return the call's error code; `id` stays empty if there is none
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

/// What decoding a user and decoding a group do not have in common.
struct Users {
    static constexpr const char* LOOKUP_CODE = "GETPWNAM";
    static int FindId(const char* name, std::optional<int>& id) { return Find(getpwnam_r, &passwd::pw_uid, name, id); }
    static void Record(const char* name, int err, int recordKind, const char* code) {
        RecordUidErr(name, err, recordKind, code);
    }
    static void LogNull() { LogError({"name is null!", "DecodeUid"}); }
    static void LogNumber(const char* name, int err) {
        LogError({"Failed to decode uid for %{public}s, errno=%{public}d", "DecodeUid"}, name, err);
    }
    static void LogLookup(const char* name, int err) {
        LogError({"getpwnam_r %{public}s failed, errno=%{public}d", "DecodeUid"}, name, err);
    }
    static void LogNotFound(const char* name) {
        LogError({"getpwnam_r %{public}s failed, user not found", "DecodeUid"}, name);
    }
};

struct Groups {
    static constexpr const char* LOOKUP_CODE = "GETGRNAM";
    static int FindId(const char* name, std::optional<int>& id) { return Find(getgrnam_r, &group::gr_gid, name, id); }
    static void Record(const char* name, int err, int recordKind, const char* code) {
        RecordGidErr(name, err, recordKind, code);
    }
    static void LogNull() { LogError({"name is null!", "DecodeGid"}); }
    static void LogNumber(const char* name, int err) {
        LogError({"Failed to decode gid for %{public}s, errno=%{public}d", "DecodeGid"}, name, err);
    }
    static void LogLookup(const char* name, int err) {
        LogError({"getgrnam_r %{public}s failed, errno=%{public}d", "DecodeGid"}, name, err);
    }
    static void LogNotFound(const char* name) {
        LogError({"getgrnam_r %{public}s failed, group not found", "DecodeGid"}, name);
    }
};

bool IsNumeric(const char* text) {
    return text[std::strspn(text, "0123456789")] == '\0';
}

template <class Database>
int DecodeNumber(const char* text, int& err, int recordKind) {
    const auto id = static_cast<unsigned int>(std::strtoul(text, nullptr, 10));
    if (id != 0 || std::strcmp(text, "0") == 0) {
        return static_cast<int>(id);
    }
    err = errno;  // not set by this conversion: whatever was left there
    Database::Record(text, err, recordKind, "STRTOUL");
    Database::LogNumber(text, err);
    return NOT_DECODED;
}

template <class Database>
int DecodeName(const char* name, int& err, int recordKind) {
    std::optional<int> id;
    const int code = Database::FindId(name, id);
    if (id) {
        return *id;
    }
    if (code != 0) {
        err = code;
        Database::LogLookup(name, err);
    } else {
        err = ENOENT;
        Database::LogNotFound(name);
    }
    Database::Record(name, err, recordKind, Database::LOOKUP_CODE);
    return NOT_DECODED;
}

template <class Database>
int Decode(const char* name, int& err, int recordKind) {
    if (name == nullptr) {
        Database::LogNull();
        err = EINVAL;
        Database::Record(nullptr, err, recordKind, "IS_NULL");
        return NOT_DECODED;
    }
    return IsNumeric(name) ? DecodeNumber<Database>(name, err, recordKind)
                           : DecodeName<Database>(name, err, recordKind);
}

}  // namespace

int DecodeUid(const char* name, int& err, int recordKind) {
    return Decode<Users>(name, err, recordKind);
}

int DecodeGid(const char* name, int& err, int recordKind) {
    return Decode<Groups>(name, err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
