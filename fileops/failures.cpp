#include "failures.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "error_record.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// A string literal as a template argument, because the log accepts formats and function names only at compile time.
template <std::size_t SIZE>
struct Literal {
    consteval Literal(const char (&literal)[SIZE]) { std::copy_n(literal, SIZE, text); }  // NOLINT(google-explicit-*)
    char text[SIZE] = {};
};

template <Literal FORMAT, Literal FUNCTION, class... Args>
void Log(Args... args) {
    LogError({FORMAT.text, FUNCTION.text}, args...);
}

enum class First { Log, Record };

struct StepTexts {
    void (*log)(const char* path, int error);
    const char* type;  ///< of the record
    void (*record)(const std::string& type, const std::string& path, int error, int recordKind);
    First first;
};

// In the order of Step.
constexpr StepTexts STEP_TEXTS[] = {
    {Log<"open dir %{public}s failed, errno %{public}d", "TryCopy">, "OPEN_TRYCOPY", RecordNormalErr, First::Log},
    {Log<"open dir %{public}s failed, errno %{public}d", "CopyCombRecurse">, "OPEN_COPYCOMBRECURSE", RecordNormalErr,
     First::Log},
    {Log<"open dir %{public}s failed, errno %{public}d", "DoChOwnRecurse">, "OPEN_CHMOWNERECURSE", RecordErrForPath,
     First::Record},
    {Log<"open dir %{public}s failed, errno %{public}d", "DoChModRecurse">, "OPEN_CHMODERECURSE", RecordErrForPath,
     First::Record},
    {Log<"open dir %{public}s failed, errno %{public}d", "TryRemove">, "OPEN_TRYREMOVE", RecordNormalErr,
     First::Record},
    {Log<"open dir %{public}s failed, errno %{public}d", "AddBlksRecurse">, "OPEN_ADDBLKSRECURSE", RecordNormalErr,
     First::Log},
    {Log<"open dir %{public}s failed, errno %{public}d", "RecMaxSizeRecurse">, "OPEN_RECMAXSIZERECURSE",
     RecordNormalErr, First::Log},
    {Log<"lstat %{public}s failed, errno=%{public}d", "IsDir">, "ISDIR", RecordErrForPath, First::Record},
    {Log<"lstat %{public}s failed, errno=%{public}d", "GetUidGid">, "GETUIDGID", RecordErrForPath, First::Record},
    {Log<"lstat %{public}s failed, errno=%{public}d", "AddBlks">, "ADDBLKS_LSTAT", RecordErrForPath, First::Log},
    {Log<"lstat %{public}s failed, errno=%{public}d", "RecMaxSize">, "MAXSIZE_LSTAT", RecordErrForPath, First::Log},
    {Log<"access %{public}s failed, errno=%{public}d", "IsPathExist">, "ISEXIST", RecordNormalErr, First::Record},
    {Log<"unlink %{public}s failed, errno=%{public}d", "DoUnlink">, "Unlink", RecordNormalErr, First::Record},
    {Log<"rmdir %{public}s failed, errno=%{public}d", "DoRmDir">, "RMDIR", RecordNormalErr, First::Record},
    {Log<"Remove %{public}s failed, errno=%{public}d", "Remove">, "REMOVE", RecordNormalErr, First::Log},
    {Log<"Restorecon %{public}s failed, errno=%{public}d", "RestoreCon">, "RESTORECON_NORECURSE", RecordNormalErr,
     First::Log},
    {Log<"RestoreconRecurseParallel %{public}s failed, errno=%{public}d", "RestoreCon">, "RESTORECONRECURSEPARALLEL",
     RecordNormalErr, First::Log},
};

// In the order of Operation.
constexpr struct {
    void (*log)(int recurseOpt, const char* path);
    const char* type;
} OPTION_TEXTS[] = {
    {Log<"Unexpected recurseOpt:%{public}d, not mkdir %{public}s", "MkDir">, "INVALID_RECURSEOPT_MKDIR"},
    {Log<"Unexpected recurseOpt:%{public}d, not prepare %{public}s", "PrepareDir">, "INVALID_RECURSEOPT_PREPAREDIR"},
    {Log<"Unexpected recurseOpt:%{public}d, not chown %{public}s", "ChOwn">, "INVALID_RECURSEOPT_CHOWN"},
    {Log<"Unexpected recurseOpt:%{public}d, not chmod %{public}s", "ChMod">, "INVALID_RECURSEOPT_CHMOD"},
    {Log<"Unexpected recurseOpt:%{public}d, not restorecon %{public}s", "RestoreCon">, "INVALID_RECURSEOPT_RESTORECON"},
};

// In the order of Identity.
constexpr struct {
    void (*logNull)();
    void (*logNumber)(const char* text, int error);
    void (*logLookup)(const char* name, int code);
    void (*logNotFound)(const char* name);
    const char* lookup;  ///< the type of the record
    void (*record)(const char* name, int error, int recordKind, const std::string& type);
} IDENTITY_TEXTS[] = {
    {Log<"name is null!", "DecodeUid">, Log<"Failed to decode uid for %{public}s, errno=%{public}d", "DecodeUid">,
     Log<"getpwnam_r %{public}s failed, errno=%{public}d", "DecodeUid">,
     Log<"getpwnam_r %{public}s failed, user not found", "DecodeUid">, "GETPWNAM", RecordUidErr},
    {Log<"name is null!", "DecodeGid">, Log<"Failed to decode gid for %{public}s, errno=%{public}d", "DecodeGid">,
     Log<"getgrnam_r %{public}s failed, errno=%{public}d", "DecodeGid">,
     Log<"getgrnam_r %{public}s failed, group not found", "DecodeGid">, "GETGRNAM", RecordGidErr},
};

}  // namespace

int Fail(Step step, const std::string& path, int error, const Report& report) {
    const StepTexts& texts = STEP_TEXTS[static_cast<int>(step)];
    report.err = error;
    if (texts.first == First::Log) {
        texts.log(path.c_str(), error);
    }
    texts.record(texts.type, path, error, report.recordKind);
    if (texts.first == First::Record) {
        texts.log(path.c_str(), error);
    }
    return error;
}

int RefuseOption(Operation operation, const std::string& path, int recurseOpt, const Report& report) {
    const auto& [log, type] = OPTION_TEXTS[static_cast<int>(operation)];
    report.err = EINVAL;
    log(recurseOpt, path.c_str());
    // A request to restore labels that names no option is refused without a record.
    if (operation != Operation::RestoreCon || recurseOpt != 0) {
        RecordRecurseOptErr(type, path, recurseOpt, EINVAL, report.recordKind);
    }
    return EINVAL;
}

int RefuseNullName(Identity identity, const Report& report) {
    const auto& texts = IDENTITY_TEXTS[static_cast<int>(identity)];
    report.err = EINVAL;
    texts.logNull();
    texts.record(nullptr, EINVAL, report.recordKind, "IS_NULL");
    return EINVAL;
}

int RefuseNumber(Identity identity, const char* text, int error, const Report& report) {
    const auto& texts = IDENTITY_TEXTS[static_cast<int>(identity)];
    report.err = error;
    texts.record(text, error, report.recordKind, "STRTOUL");
    texts.logNumber(text, error);
    return error;
}

int FailLookup(Identity identity, const char* name, int code, const Report& report) {
    const auto& texts = IDENTITY_TEXTS[static_cast<int>(identity)];
    report.err = code != 0 ? code : ENOENT;
    if (code != 0) {
        texts.logLookup(name, code);
    } else {
        texts.logNotFound(name);
    }
    texts.record(name, report.err, report.recordKind, texts.lookup);
    return report.err;
}

int FailListDir(const std::string& path, int error, const Report& report) {
    report.err = error;
    if (error != ENOENT) {
        RecordNormalErr("LISTDIR_OPEN", path, error, report.recordKind);
    }
    LogError({"failed to open dir %{public}s, errno=%{public}d", "ListDir"}, path, error);
    return error;
}

int FailCopy(const std::string& src, const std::string& dst, int error, const Report& report) {
    report.err = error;
    LogError({"copy %{public}s to %{public}s failed, errno=%{public}d", "DoCopy"}, src, dst, error);
    RecordCopyErr(src, dst, error, report.recordKind);
    return error;
}

int FailFlush(const std::string& src, const std::string& dst, int error, const Report& report) {
    report.err = error;
    LogError({"flush %{public}s failed, errno=%{public}d", "MoveByCopy"}, dst, error);
    RecordCopyErr(src, dst, error, report.recordKind);
    return error;
}

int FailRename(const std::string& src, const std::string& dst, int error, const Report& report) {
    report.err = error;
    LogError({"MoveByRename %{public}s to %{public}s failed, errno=%{public}d", "DoMove"}, src, dst, error);
    if (error != EXDEV) {
        RecordMoveErr(src, dst, error, report.recordKind);
    }
    return error;
}

int FailExchanged(const std::string& path, const Report& report) {
    report.err = ESTALE;
    RecordErrForPath("GETUIDGID", path, ESTALE, report.recordKind);
    LogError({"%{public}s was exchanged while it was copied, errno=%{public}d", "GetUidGid"}, path, ESTALE);
    return ESTALE;
}

int FailMkDir(const std::string& path, unsigned int mode, int error, const Report& report) {
    report.err = error;
    LogError({"mkdir %{public}s %{public}o failed, errno=%{public}d", "DoMkDir"}, path, mode, error);
    RecordMkdirErr(path, mode, error, report.recordKind);
    return error;
}

int FailChMod(const std::string& path, unsigned int mode, int error, const Report& report) {
    report.err = error;
    LogError({"lchmod %{public}s %{public}o failed, errno=%{public}d", "DoChMod"}, path, mode, error);
    RecordChmodErr(path, mode, error, report.recordKind);
    return error;
}

int FailChOwn(const std::string& path, const OwnerIds& owner, int error, const Report& report) {
    const auto& [uid, gid] = owner;
    report.err = error;
    LogError({"lchown %{public}s %{public}u %{public}u failed, errno=%{public}d", "DoChOwn"}, path, uid, gid, error);
    RecordChownErr(path, uid, gid, error, report.recordKind);
    return error;
}

int FailRestoreconFromParent(const std::string& path, int ret, int error, const Report& report) {
    report.err = error;
    LogError({"RestoreconFromParentDir %{public}s failed, ret=%{public}d, errno=%{public}d", "RestoreConFromParent"},
             path, ret, error);
    RecordRestoreConFromParentErr(path, ret, error, report.recordKind);
    return error;
}

}  // namespace TAVO::FileMigrateOrvane
