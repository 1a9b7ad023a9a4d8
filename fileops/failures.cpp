#include "failures.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "error_record.h"
#include "log.h"
#include "record_format.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// A string literal as a template argument, because the log accepts formats and function names only at compile time.
template <std::size_t SIZE>
struct Literal {
    consteval Literal(const char (&literal)[SIZE]) { std::copy_n(literal, SIZE, text); }  // NOLINT(google-explicit-*)
    char text[SIZE] = {};
};

template <Literal FORMAT, Literal FUNCTION, class... Args>
void Write(const LogFailureFields& failure, Args... args) {
    LogFailure(failure, {FORMAT.text, FUNCTION.text}, args...);
}

enum class First { Log, Record };

struct StepTexts {
    void (*log)(const LogFailureFields& failure, const char* path, int error);
    const char* type;  ///< of the record
    void (*record)(const std::string& type, const std::string& path, int error, int recordKind);
    First first;
};

// In the order of Step.
constexpr StepTexts STEP_TEXTS[] = {
    {Write<"open dir %{public}s failed, errno %{public}d", "TryCopy">, RecordTypeName("OPEN_TRYCOPY"), RecordNormalErr,
     First::Log},
    {Write<"open dir %{public}s failed, errno %{public}d", "CopyCombRecurse">, RecordTypeName("OPEN_COPYCOMBRECURSE"),
     RecordNormalErr, First::Log},
    {Write<"open dir %{public}s failed, errno %{public}d", "DoChOwnRecurse">, RecordTypeName("OPEN_CHMOWNERECURSE"),
     RecordErrForPath, First::Record},
    {Write<"open dir %{public}s failed, errno %{public}d", "DoChModRecurse">, RecordTypeName("OPEN_CHMODERECURSE"),
     RecordErrForPath, First::Record},
    {Write<"open dir %{public}s failed, errno %{public}d", "TryRemove">, RecordTypeName("OPEN_TRYREMOVE"),
     RecordNormalErr, First::Record},
    {Write<"open dir %{public}s failed, errno %{public}d", "AddBlksRecurse">, RecordTypeName("OPEN_ADDBLKSRECURSE"),
     RecordNormalErr, First::Log},
    {Write<"open dir %{public}s failed, errno %{public}d", "RecMaxSizeRecurse">,
     RecordTypeName("OPEN_RECMAXSIZERECURSE"), RecordNormalErr, First::Log},
    {Write<"lstat %{public}s failed, errno=%{public}d", "IsDir">, RecordTypeName("ISDIR"), RecordErrForPath,
     First::Record},
    {Write<"lstat %{public}s failed, errno=%{public}d", "GetUidGid">, RecordTypeName("GETUIDGID"), RecordErrForPath,
     First::Record},
    {Write<"lstat %{public}s failed, errno=%{public}d", "AddBlks">, RecordTypeName("ADDBLKS_LSTAT"), RecordErrForPath,
     First::Log},
    {Write<"lstat %{public}s failed, errno=%{public}d", "RecMaxSize">, RecordTypeName("MAXSIZE_LSTAT"),
     RecordErrForPath, First::Log},
    {Write<"access %{public}s failed, errno=%{public}d", "IsPathExist">, RecordTypeName("ISEXIST"), RecordNormalErr,
     First::Record},
    {Write<"unlink %{public}s failed, errno=%{public}d", "DoUnlink">, RecordTypeName("Unlink"), RecordNormalErr,
     First::Record},
    {Write<"rmdir %{public}s failed, errno=%{public}d", "DoRmDir">, RecordTypeName("RMDIR"), RecordNormalErr,
     First::Record},
    {Write<"Remove %{public}s failed, errno=%{public}d", "Remove">, RecordTypeName("REMOVE"), RecordNormalErr,
     First::Log},
    {Write<"Restorecon %{public}s failed, errno=%{public}d", "RestoreCon">, RecordTypeName("RESTORECON_NORECURSE"),
     RecordNormalErr, First::Log},
    {Write<"RestoreconRecurseParallel %{public}s failed, errno=%{public}d", "RestoreCon">,
     RecordTypeName("RESTORECONRECURSEPARALLEL"), RecordNormalErr, First::Log},
};

// In the order of Operation.
constexpr struct {
    void (*log)(const LogFailureFields& failure, int recurseOpt, const char* path);
    const char* type;
} OPTION_TEXTS[] = {
    {Write<"Unexpected recurseOpt:%{public}d, not mkdir %{public}s", "MkDir">,
     RecordTypeName("INVALID_RECURSEOPT_MKDIR")},
    {Write<"Unexpected recurseOpt:%{public}d, not prepare %{public}s", "PrepareDir">,
     RecordTypeName("INVALID_RECURSEOPT_PREPAREDIR")},
    {Write<"Unexpected recurseOpt:%{public}d, not chown %{public}s", "ChOwn">,
     RecordTypeName("INVALID_RECURSEOPT_CHOWN")},
    {Write<"Unexpected recurseOpt:%{public}d, not chmod %{public}s", "ChMod">,
     RecordTypeName("INVALID_RECURSEOPT_CHMOD")},
    {Write<"Unexpected recurseOpt:%{public}d, not restorecon %{public}s", "RestoreCon">,
     RecordTypeName("INVALID_RECURSEOPT_RESTORECON")},
};

// In the order of Identity.
constexpr struct {
    const char* nullType;  ///< the record's type, as are numberType and lookupType
    void (*logNull)(const LogFailureFields& failure);
    const char* numberType;
    void (*logNumber)(const LogFailureFields& failure, const char* text, int error);
    const char* lookupType;
    void (*logLookup)(const LogFailureFields& failure, const char* name, int code);
    void (*logNotFound)(const LogFailureFields& failure, const char* name);
    const char* lookup;  ///< the lookup type without its prefix
    void (*record)(const char* name, int error, int recordKind, const std::string& type);
} IDENTITY_TEXTS[] = {
    {RecordTypeName("UID_IS_NULL"), Write<"name is null!", "DecodeUid">, RecordTypeName("UID_STRTOUL"),
     Write<"Failed to decode uid for %{public}s, errno=%{public}d", "DecodeUid">, RecordTypeName("UID_GETPWNAM"),
     Write<"getpwnam_r %{public}s failed, errno=%{public}d", "DecodeUid">,
     Write<"getpwnam_r %{public}s failed, user not found", "DecodeUid">, "GETPWNAM", RecordUidErr},
    {RecordTypeName("GID_IS_NULL"), Write<"name is null!", "DecodeGid">, RecordTypeName("GID_STRTOUL"),
     Write<"Failed to decode gid for %{public}s, errno=%{public}d", "DecodeGid">, RecordTypeName("GID_GETGRNAM"),
     Write<"getgrnam_r %{public}s failed, errno=%{public}d", "DecodeGid">,
     Write<"getgrnam_r %{public}s failed, group not found", "DecodeGid">, "GETGRNAM", RecordGidErr},
};

}  // namespace

int Fail(Step step, const std::string& path, int error, const Report& report) {
    const StepTexts& texts = STEP_TEXTS[static_cast<int>(step)];
    const LogFailureFields failure{texts.type, error, path};
    report.err = error;
    if (texts.first == First::Log) {
        texts.log(failure, path.c_str(), error);
    }
    texts.record(texts.type, path, error, report.recordKind);
    if (texts.first == First::Record) {
        texts.log(failure, path.c_str(), error);
    }
    return error;
}

int RefuseOption(Operation operation, const std::string& path, int recurseOpt, const Report& report) {
    const auto& [log, type] = OPTION_TEXTS[static_cast<int>(operation)];
    report.err = EINVAL;
    log({type, EINVAL, path}, recurseOpt, path.c_str());
    // A request to restore labels that names no option is refused without a record.
    if (operation != Operation::RestoreCon || recurseOpt != 0) {
        RecordRecurseOptErr(type, path, recurseOpt, EINVAL, report.recordKind);
    }
    return EINVAL;
}

int RefuseNullName(Identity identity, const Report& report) {
    const auto& texts = IDENTITY_TEXTS[static_cast<int>(identity)];
    report.err = EINVAL;
    texts.logNull({texts.nullType, EINVAL});
    texts.record(nullptr, EINVAL, report.recordKind, "IS_NULL");
    return EINVAL;
}

int RefuseNumber(Identity identity, const char* text, int error, const Report& report) {
    const auto& texts = IDENTITY_TEXTS[static_cast<int>(identity)];
    report.err = error;
    texts.record(text, error, report.recordKind, "STRTOUL");
    texts.logNumber({texts.numberType, error}, text, error);
    return error;
}

int FailLookup(Identity identity, const char* name, int code, const Report& report) {
    const auto& texts = IDENTITY_TEXTS[static_cast<int>(identity)];
    report.err = code != 0 ? code : ENOENT;
    const LogFailureFields failure{texts.lookupType, report.err};
    if (code != 0) {
        texts.logLookup(failure, name, code);
    } else {
        texts.logNotFound(failure, name);
    }
    texts.record(name, report.err, report.recordKind, texts.lookup);
    return report.err;
}

int FailListDir(const std::string& path, int error, const Report& report) {
    report.err = error;
    if (error != ENOENT) {
        RecordNormalErr(RecordTypeName("LISTDIR_OPEN"), path, error, report.recordKind);
    }
    LogFailure({RecordTypeName("LISTDIR_OPEN"), error, path},
               {"failed to open dir %{public}s, errno=%{public}d", "ListDir"}, path, error);
    return error;
}

int FailCopy(const std::string& src, const std::string& dst, int error, const Report& report) {
    report.err = error;
    LogFailure({RecordTypeName("COPY"), error, src, dst},
               {"copy %{public}s to %{public}s failed, errno=%{public}d", "DoCopy"}, src, dst, error);
    RecordCopyErr(src, dst, error, report.recordKind);
    return error;
}

int FailFlush(const std::string& src, const std::string& dst, int error, const Report& report) {
    report.err = error;
    LogFailure({RecordTypeName("COPY"), error, src, dst}, {"flush %{public}s failed, errno=%{public}d", "MoveByCopy"},
               dst, error);
    RecordCopyErr(src, dst, error, report.recordKind);
    return error;
}

int FailRename(const std::string& src, const std::string& dst, int error, const Report& report) {
    report.err = error;
    const LogFailureFields failure{RecordTypeName("MOVE"), error, src, dst};
    const LogKind kind = error == EXDEV ? LogKind::Routine : LogKind::Event;
    Log({LogLevel::Error, kind, &failure}, {"MoveByRename %{public}s to %{public}s failed, errno=%{public}d", "DoMove"},
        src, dst, error);
    if (error != EXDEV) {
        RecordMoveErr(src, dst, error, report.recordKind);
    }
    return error;
}

int FailExchanged(const std::string& path, const Report& report) {
    report.err = ESTALE;
    RecordErrForPath(RecordTypeName("GETUIDGID"), path, ESTALE, report.recordKind);
    LogFailure({RecordTypeName("GETUIDGID"), ESTALE, path},
               {"%{public}s was exchanged while it was copied, errno=%{public}d", "GetUidGid"}, path, ESTALE);
    return ESTALE;
}

int FailMkDir(const std::string& path, unsigned int mode, int error, const Report& report) {
    report.err = error;
    LogFailure({RecordTypeName("MKDIR"), error, path},
               {"mkdir %{public}s %{public}o failed, errno=%{public}d", "DoMkDir"}, path, mode, error);
    RecordMkdirErr(path, mode, error, report.recordKind);
    return error;
}

int FailChMod(const std::string& path, unsigned int mode, int error, const Report& report) {
    report.err = error;
    LogFailure({RecordTypeName("CHMOD"), error, path},
               {"lchmod %{public}s %{public}o failed, errno=%{public}d", "DoChMod"}, path, mode, error);
    RecordChmodErr(path, mode, error, report.recordKind);
    return error;
}

int FailChOwn(const std::string& path, const OwnerIds& owner, int error, const Report& report) {
    const auto& [uid, gid] = owner;
    report.err = error;
    LogFailure({RecordTypeName("CHOWN"), error, path},
               {"lchown %{public}s %{public}u %{public}u failed, errno=%{public}d", "DoChOwn"}, path, uid, gid, error);
    RecordChownErr(path, uid, gid, error, report.recordKind);
    return error;
}

int FailPrepareDir(const std::string& path, const OwnerIds& owner, unsigned int mode, int error, const Report& report) {
    report.err = error;
    LogFailure({"PREPAREDIR", error, path},
               {"DoPrepareDir %{public}s failed: %{public}u, %{public}u, %{public}o", "DoPrepareDir"}, path, owner.uid,
               owner.gid, mode);
    return error;
}

int RefuseOwner(const std::string& path, const Report& report) {
    report.err = EINVAL;
    LogFailure({RecordTypeName("CHOWN"), EINVAL, path}, {"Invalid uid:gid", "ChOwn"});
    return EINVAL;
}

int RefuseMode(const std::string& path, const Report& report) {
    const LogFailureFields failure{RecordTypeName("CHMOD"), EINVAL, path};
    report.err = EINVAL;
    Log({LogLevel::Warn, LogKind::Event, &failure}, {"invalid mode", "ChMod"});
    return EINVAL;
}

int FailRestoreconFromParent(const std::string& path, int ret, int error, const Report& report) {
    report.err = error;
    LogFailure({RecordTypeName("RESTORECON_FROMPARENT"), error, path},
               {"RestoreconFromParentDir %{public}s failed, ret=%{public}d, errno=%{public}d", "RestoreConFromParent"},
               path, ret, error);
    RecordRestoreConFromParentErr(path, ret, error, report.recordKind);
    return error;
}

}  // namespace TAVO::FileMigrateOrvane
