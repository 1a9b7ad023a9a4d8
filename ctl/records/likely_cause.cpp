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
    {ENAMETOOLONG, IntoItself},
    {ENAMETOOLONG, TooLong},
    {ELOOP, Links},
    {ETXTBSY, Program},
    {EMFILE, DaemonsFiles},
    {ENFILE, SystemsFiles},
    {EIO, BrokenDisk},
    {ENOMEM, NoMemory},
};

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

}  // namespace TAVO::FileMigrateOrvane
