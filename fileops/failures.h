// The one way in which a failure inside this folder is reported. Each function here handles one kind of failure: it
// writes the log line, appends the record, stores the error number in the caller's `err` and returns that number. The
// order of log line and record and all texts are fixed; programs in the field read them.
//
// Functions inside this folder return 0 or an error number. Those that take a Report have reported the failure when
// they return; those without one leave that to their caller. Only the operations that other folders call have the form
// 0 or -1 with `int& err, int recordKind`; ResultOf() converts.
//
// No function here is inlined into a walk: a walk's stack frame exists once for each level of a tree.
#pragma once

#include <string>

namespace TAVO::FileMigrateOrvane {

/// Where the failures of one operation go.
struct Report {
    int& err;        ///< the operation's; receives the number of each failure and is never cleared
    int recordKind;  ///< which record file, see record_file.h
};

/// What an operation returns for an error number.
[[nodiscard]] inline int ResultOf(int error) {
    return error == 0 ? 0 : -1;
}

struct OwnerIds {
    unsigned int uid;
    unsigned int gid;
};

/// A step on one path, named after the system call and the function that makes it.
enum class Step {
    OpenTryCopy,
    OpenCopyComb,
    OpenChOwn,
    OpenChMod,
    OpenTryRemove,
    OpenAddBlks,
    OpenMaxSize,
    LstatIsDir,
    LstatGetUidGid,
    LstatAddBlks,
    LstatMaxSize,
    Access,
    Unlink,
    RmDir,
    Remove,
    Restorecon,
    RestoreconRecurse,
};
/// @return `error`, as do all functions here
int Fail(Step step, const std::string& path, int error, const Report& report);

/// The operations that have a recursion option.
enum class Operation { MkDir, PrepareDir, ChOwn, ChMod, RestoreCon };
/// Refuses an unknown option. @return EINVAL
int RefuseOption(Operation operation, const std::string& path, int recurseOpt, const Report& report);

enum class Identity { User, Group };
int RefuseNullName(Identity identity, const Report& report);
/// Refuses a text of digits that does not decode to a number. @param error  errno as an earlier call left it
int RefuseNumber(Identity identity, const char* text, int error, const Report& report);
/// @param code  what the lookup returned; 0 if it found nothing
int FailLookup(Identity identity, const char* name, int code, const Report& report);

/// A directory that does not exist is logged but not recorded.
int FailListDir(const std::string& path, int error, const Report& report);
int FailCopy(const std::string& src, const std::string& dst, int error, const Report& report);
/// The copy at `dst` could not be flushed to disk.
int FailFlush(const std::string& src, const std::string& dst, int error, const Report& report);
/// EXDEV, after which a move copies, is logged but not recorded.
int FailRename(const std::string& src, const std::string& dst, int error, const Report& report);
/// Another object took the name of the source during the copy. @return ESTALE
int FailExchanged(const std::string& path, const Report& report);
/// @param mode  permission bits
int FailMkDir(const std::string& path, unsigned int mode, int error, const Report& report);
int FailChMod(const std::string& path, unsigned int mode, int error, const Report& report);
int FailChOwn(const std::string& path, const OwnerIds& owner, int error, const Report& report);
/// A directory could not be prepared; its line comes after the line of the step that failed.
int FailPrepareDir(const std::string& path, const OwnerIds& owner, unsigned int mode, int error, const Report& report);
/// The request does not give an owner. It leaves no record. @return EINVAL
int RefuseOwner(const std::string& path, const Report& report);
/// The request does not give a mode. It leaves no record. @return EINVAL
int RefuseMode(const std::string& path, const Report& report);
/// @param ret  what the label call returned
int FailRestoreconFromParent(const std::string& path, int ret, int error, const Report& report);

}  // namespace TAVO::FileMigrateOrvane
