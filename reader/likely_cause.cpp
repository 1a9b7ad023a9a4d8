#include <cerrno>

#include "causes.h"
#include "explain.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr struct {
    int errorNumber;
    Cause (*rule)(const Evidence&);
} RULES[] = {
    {EPERM, Flagged},
    {EPERM, Sticky},
    {EPERM, MayNotChown},
    {EACCES, StickyFile},
    {EACCES, Denied},
    {ENOENT, MissingParent},
    {ENOENT, MissingSource},
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
    {EINVAL, NotCopied},
    {EOPNOTSUPP, DestinationIsLink},
    {EOPNOTSUPP, LinkHasNoMode},
    {EOPNOTSUPP, NoLabels},
    {EXDEV, OtherFileSystem},
    {EBUSY, MountPoint},
    {EROFS, ReadOnly},
    {ENOSPC, NoSpace},
    {EDQUOT, NoQuota},
    {ENAMETOOLONG, TooLong},
    {ENAMETOOLONG, IntoItself},
    {ELOOP, Links},
    {ETXTBSY, Program},
    {EMFILE, DaemonsFiles},
    {ENFILE, SystemsFiles},
    {EIO, BrokenDisk},
    {ENOMEM, NoMemory},
};

/// A path as one word of a shell's command line, whatever is in it.
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

}  // namespace

std::string LikelyCause(const Record& record) {
    if (!record.refusedField.empty()) {
        return WhyRefused(record);
    }
    Cause cause = WrongRequest(record);
    const Evidence evidence(record);
    for (const auto& [errorNumber, rule] : RULES) {
        if (cause.empty() && record.errorNumber == errorNumber) {
            cause = rule(evidence);
        }
    }
    return cause;
}

std::string ToCheck(const Record& record) {
    const Evidence evidence(record);
    const bool isForOne = evidence.IsType("CHMOD") || evidence.IsType("REMOVE");
    const bool isForName = evidence.IsType("Unlink") || evidence.IsType("RMDIR");
    if (record.errorNumber != EPERM || !(isForOne || isForName || evidence.IsType("MKDIR"))) {
        return {};
    }
    std::string command("lsattr -d");
    if (isForOne || isForName) {
        command.append(" ").append(Quoted(record.src));
    }
    if (!isForOne) {  // of MKDIR the parent alone: the path itself is not there
        command.append(" ").append(Quoted(evidence.srcParent));
    }
    return command.append(" (this record holds no inode flags)");
}

}  // namespace TAVO::FileMigrateOrvane
