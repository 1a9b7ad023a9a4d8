#include <sys/stat.h>

#include <cerrno>
#include <string_view>

#include "causes.h"
#include "explain.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

constexpr struct {
    int errorNumber;
    Cause (*rule)(const Evidence&);
} RULES[] = {
    {EPERM, Flagged},
    {EPERM, Sticky},
    {EPERM, MayNotChown},
    {EACCES, StickyFile},
    {EACCES, MissingCapability},
    {EPERM, KernelFileSystem},
    {EACCES, KernelFileSystem},
    {EACCES, Denied},
    {ENOENT, MissingParent},
    {ENOENT, MissingSource},
    {ENOENT, KernelFileSystem},
    {ENOTDIR, ParentIsNoDirectory},
    {ENOTDIR, DirectoryOntoOther},
    {ENOTDIR, SourceIsNoDirectory},
    {ENOTDIR, AncestorIsNoDirectory},
    {EISDIR, DirectoryOntoOther},
    {EISDIR, OtherOntoDirectory},
    {EISDIR, UnlinkedDirectory},
    {ENOTEMPTY, NotEmpty},
    {EEXIST, NotEmpty},
    {EEXIST, SameFile},
    {EINVAL, IntoItself},
    {EINVAL, SpecialFile},
    {EINVAL, DestinationIsLink},
    {EINVAL, KernelFileSystem},
    {EOPNOTSUPP, DestinationIsLink},
    {EOPNOTSUPP, LinkHasNoMode},
    {EOPNOTSUPP, NoLabels},
    {EXDEV, OtherFileSystem},
    {EBUSY, MountPoint},
    {EROFS, KernelFileSystem},
    {EROFS, ReadOnly},
    {ENOSPC, NoSpace},
    {EDQUOT, NoQuota},
    {ENAMETOOLONG, TooLong},
    {ENAMETOOLONG, IntoItself},
    {ELOOP, TooManyLinks},
    {ETXTBSY, RunningProgram},
    {EMFILE, NoDescriptor},
    {ENFILE, NoDescriptorInSystem},
    {EIO, DiskFailed},
    {ENOMEM, NoMemory},
    {EUCLEAN, CorruptFileSystem},
    {EMLINK, TooManySubdirectories},
    {EFBIG, TooLarge},
};

Cause MissingArgument(const std::string& what) {
    return {"missing-argument", "", "no " + what + " was given"};
}

Cause WrongOwner(const Record& record, const std::string& what, const std::string& name) {
    if (name.empty()) {
        return MissingArgument(what);
    }
    if (record.type.ends_with("_STRTOUL")) {
        return {"bad-number", "", "the " + what + " number " + name + " evaluates to 0; write it as \"0\""};
    }
    if (record.errorNumber == ERANGE) {
        return {"long-entry", "", "the system's entry for the " + what + " " + name + " is too long"};
    }
    return record.errorNumber == ENOENT
               ? Cause{what == "user" ? "no-such-user" : "no-such-group", "", "there is no " + what + " " + name}
               : Cause();
}

/// What is wrong with the request itself, whatever the error number.
Cause WrongRequest(const Record& record) {
    const std::string& type = record.type;
    if (type == "PARA_EMPTY") {
        const char* const missing = record.user.empty() ? "user" : record.group.empty() ? "group" : "mode";
        return {"missing-argument", "", std::string("no ") + missing + " was given; user, group and mode are required"};
    }
    if (type == "TRANSFORM_MODE") {
        return record.perm.empty() ? MissingArgument("mode")
                                   : Cause{"bad-mode", "", "\"" + record.perm + "\" is not an octal mode, or it is 0"};
    }
    if (type.starts_with("UID_")) {
        return WrongOwner(record, "user", record.user);
    }
    if (type.starts_with("GID_")) {
        return WrongOwner(record, "group", record.group);
    }
    return type.starts_with("INVALID_RECURSEOPT_")
               ? Cause{"bad-recursion", "",
                       "the recursion option " + record.recurseOpt +
                           " is neither 1 (the path only) nor 2 (everything below it)"}
               : Cause();
}

Cause WhyRefused(const Record& record) {
    constexpr struct {
        std::string_view type;
        std::string_view word;
        std::string_view before;
        std::string_view after;
    } refusals[] = {
        {"RECVBUFSIZE", "bad-size", "the request had ", " bytes; a request has 8288, sent at once"},
        {"INVALID_CMD", "bad-command", "there is no command ", ""},
        {"INVALID_MODE", "bad-mode", "the mode ", " contains a \"-\""},
        {"INVALID_RECURSEOPT", "bad-recursion", "there is no recursion option ", ""},
    };
    if (record.type == "RECVBUFSIZE" && record.refusedValue == "-1") {
        return {"not-received", "", "the request could not be received"};
    }
    if (record.type == "INVALID_STR") {
        const std::string field = record.refusedField == "dts" ? "destination" : record.refusedField;
        return {"bad-text", "", "the field " + field + " has no terminating NUL, or it contains \"../\""};
    }
    for (const auto& refusal : refusals) {
        if (record.type == refusal.type) {
            return {refusal.word, "", std::string(refusal.before).append(record.refusedValue).append(refusal.after)};
        }
    }
    return {};
}

}  // namespace

std::string Quoted(const std::string& path) {
    constexpr const char* plain = "/._-+@%,:=0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    if (path.find_first_not_of(plain) == std::string::npos) {
        return path;
    }
    std::string word = "'";
    for (const char byte : path) {
        word.append(byte == '\'' ? "'\\'" : "").append(1, byte);
    }
    return word.append("'");
}

Cause LikelyCause(const Record& record) {
    if (!record.refusedField.empty()) {
        return WhyRefused(record);
    }
    Cause cause = WrongRequest(record);
    if (HasCutPath(record)) {
        return record.errorNumber == ENAMETOOLONG ? TooLong(Evidence(record)) : cause;
    }
    const Evidence evidence(record);
    for (const auto& [errorNumber, rule] : RULES) {
        if (cause.word.empty() && record.errorNumber == errorNumber) {
            cause = rule(evidence);
        }
    }
    return cause;
}

std::string ToCheck(const Record& record) {
    const Evidence e(record);
    const std::string src = Quoted(record.src);
    const std::string parent = Quoted(e.srcParent);
    if (!LikelyCause(record).word.empty() || !record.errorNumber || HasCutPath(record)) {
        return {};
    }
    const bool isTree = e.IsType("REMOVE") && !e.Is(record.src, S_IFREG);
    const bool isRemoval = e.IsType("REMOVE") || e.IsType("Unlink") || e.IsType("RMDIR");
    switch (*record.errorNumber) {
        case EPERM:
            if (isTree) {
                return "lsattr -d " + parent + "; lsattr -Ra " + src + " (an object below may be immutable)";
            }
            if (isRemoval) {
                return "lsattr -d " + src + " " + parent + "; swapon --show (this record holds no inode flags)";
            }
            if (e.IsType("CHMOD")) {
                return "lsattr -d " + src + "; grep CapEff /proc/$(pidof file_migrate_orvane)/status (cap_fowner is 8)";
            }
            return e.IsType("MKDIR") ? "lsattr -d " + parent + " (this record holds no inode flags)"
                   : e.HasTwoPaths() ? "swapon --show (a swap file in use cannot be moved or replaced)"
                                     : std::string();
        case EBUSY:
            return isRemoval || e.IsType("MOVE") ? "findmnt -o TARGET | grep -F " + src + " (a mount point below it)"
                                                 : "";
        case EINVAL:
            return e.Is(record.src, S_IFDIR) ? "find " + src + " ! -type f ! -type d (objects that are not copied)"
                                             : "";
        case EACCES:
            return "namei -l " + src + "; grep CapEff /proc/$(pidof file_migrate_orvane)/status";
        default:
            return {};
    }
}

}  // namespace TAVO::FileMigrateOrvane::Reader
