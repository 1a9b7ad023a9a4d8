#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <tuple>
#include <utility>

#include "causes.h"
#include "record_format.h"
#include "record_types.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

bool IsSpecial(const Evidence& e, const std::string& path) {
    return e.Object(path) != nullptr && !e.Is(path, S_IFREG) && !e.Is(path, S_IFDIR) && !e.Is(path, S_IFLNK);
}

/// Whether the type's operation only examines its path and its records hold no snapshots. The record's error is then
/// about that path.
bool IsPlainLook(const Evidence& e) {
    const RecordType& type = TypeOf(e.record.type);
    return !type.name.empty() && type.line.hasSrc && type.snapshots.empty();
}

Cause NoDirectoryOnTheWay(const std::string& path) {
    // A path with a "/" at its end must be a directory itself.
    const std::string where = path.ends_with('/') ? path + " or something above it" : "something above " + path;
    return {"not-directory", path, where + " is not a directory"};
}

}  // namespace

Cause MissingParent(const Evidence& e) {
    for (const std::string& parent : e.Parents()) {
        if (e.ErrorOf(parent) == ENOENT) {
            return {"parent-missing", parent, e.Named(parent) + " does not exist"};
        }
        const FlagsSnapshot* const flags = e.Flags(parent);
        const bool isDangling =
            flags != nullptr ? flags->failedStep == "realpath" && flags->errorNumber == ENOENT : e.IsType("MKDIR");
        if (e.Is(parent, S_IFLNK) && isDangling) {
            return {"dangling-link", parent, e.Named(parent) + " is a symbolic link that leads nowhere"};
        }
    }
    return {};
}

Cause MissingSource(const Evidence& e) {
    const std::string& path = e.record.src;
    if (e.IsType("MKDIR") || (e.ErrorOf(path) != ENOENT && !IsPlainLook(e))) {
        return {};
    }
    if (e.IsType("CHOWN")) {
        return {"source-missing", path,
                path + " does not exist; a move across file systems does not create links and special files"};
    }
    return path.empty() ? Cause{"empty-path", "", "the path is empty"}
                        : Cause{"source-missing", path, e.Named(path) + " does not exist"};
}

Cause ParentIsNoDirectory(const Evidence& e) {
    for (const std::string& parent : e.Parents()) {
        if (e.Object(parent) != nullptr && !e.Is(parent, S_IFDIR) && !e.Is(parent, S_IFLNK)) {
            return {"not-directory", parent, e.IsA(parent)};
        }
    }
    return {};
}

Cause AncestorIsNoDirectory(const Evidence& e) {
    for (const std::string& path : {e.srcParent, e.dstParent, e.record.src, e.record.dst}) {
        if (e.ErrorOf(path) == ENOTDIR) {
            return NoDirectoryOnTheWay(path);
        }
    }
    return IsPlainLook(e) && !e.record.type.starts_with("OPEN_") ? NoDirectoryOnTheWay(e.record.src) : Cause();
}

Cause SourceIsNoDirectory(const Evidence& e) {
    const std::string& src = e.record.src;
    const bool needsDirectory = e.record.type.starts_with("OPEN_") || e.IsType("LISTDIR_OPEN") || e.IsType("RMDIR");
    const bool isOther = e.Object(src) != nullptr && !e.Is(src, S_IFDIR);
    return needsDirectory && isOther ? Cause{"not-directory", src, e.IsA(src) + ", not a directory"} : Cause();
}

Cause DirectoryOntoOther(const Evidence& e) {
    const auto& [src, dst] = std::tie(e.record.src, e.record.dst);
    const bool isSo = e.HasTwoPaths() && e.Is(src, S_IFDIR) && e.Object(dst) != nullptr && !e.Is(dst, S_IFDIR);
    return isSo ? Cause{"directory-onto-other", dst, e.IsA(src) + ", and " + e.IsA(dst)} : Cause();
}

Cause OtherOntoDirectory(const Evidence& e) {
    const auto& [src, dst] = std::tie(e.record.src, e.record.dst);
    const bool isSo = e.IsType("MOVE") && e.Object(src) != nullptr && !e.Is(src, S_IFDIR) && e.Is(dst, S_IFDIR);
    return isSo ? Cause{"other-onto-directory", dst, e.IsA(dst) + ", and " + e.IsA(src)} : Cause();
}

Cause UnlinkedDirectory(const Evidence& e) {
    const std::string& src = e.record.src;
    return e.IsType("Unlink") && e.Is(src, S_IFDIR) ? Cause{"is-directory", src, e.IsA(src)} : Cause();
}

Cause NotEmpty(const Evidence& e) {
    const auto& [src, dst] = std::tie(e.record.src, e.record.dst);
    if (e.IsType("MOVE") && e.Is(src, S_IFDIR) && e.Is(dst, S_IFDIR)) {
        return {"not-empty", dst, e.Named(dst) + " is a directory that is not empty"};
    }
    return e.IsType("RMDIR") || e.IsType("REMOVE")
               ? Cause{"not-empty", src, src + " is not empty: something in it was not removed"}
               : Cause();
}

Cause SameFile(const Evidence& e) {
    const StatSnapshot* const src = e.Object(e.record.src);
    const StatSnapshot* const dst = e.Object(e.record.dst);
    const bool isSame =
        e.IsType("COPY") && src != nullptr && dst != nullptr && src->device == dst->device && src->inode == dst->inode;
    return isSame ? Cause{"same-file", e.record.dst,
                          e.Named(e.record.src) + " and " + e.Named(e.record.dst) + " are the same object"}
                  : Cause();
}

Cause IntoItself(const Evidence& e) {
    const auto& [src, dst] = std::tie(e.record.src, e.record.dst);
    const bool isInside = dst.starts_with(src.ends_with('/') ? src : src + "/");
    return e.HasTwoPaths() && e.Is(src, S_IFDIR) && isInside
               ? Cause{"into-itself", dst, "the destination " + dst + " lies inside the source " + src}
               : Cause();
}

Cause SpecialFile(const Evidence& e) {
    for (const std::string& path : {e.record.src, e.record.dst}) {
        if (e.IsType("COPY") && IsSpecial(e, path)) {
            return {"special-file", path, e.IsA(path) + ": only files and directories are copied"};
        }
    }
    return {};
}

Cause DestinationIsLink(const Evidence& e) {
    const std::string& dst = e.record.dst;
    const FlagsSnapshot* const flags = e.Flags(dst);
    if (e.IsType("COPY") && e.Is(dst, S_IFLNK) && flags != nullptr && flags->failedStep == "realpath" &&
        flags->errorNumber == ENOENT) {
        return {"dangling-link", dst, e.Named(dst) + " is a symbolic link that leads nowhere"};
    }
    const bool isSo = e.IsType("COPY") && e.Is(dst, S_IFLNK);
    return isSo ? Cause{"destination-link", dst, e.IsA(dst) + ", and the daemon does not write through links"}
                : Cause();
}

Cause LinkHasNoMode(const Evidence& e) {
    const std::string& src = e.record.src;
    const bool isSo = e.IsType("CHMOD") && e.Is(src, S_IFLNK);
    return isSo ? Cause{"link-mode", src, e.IsA(src) + ", which has no mode of its own"} : Cause();
}

Cause TooManyLinks(const Evidence& e) {
    const std::string& src = e.record.src;
    return {"link-loop", src,
            e.Is(src, S_IFLNK) ? e.IsA(src) + " that is not followed, or that leads in a circle"
                               : "the path goes through too many symbolic links, or they lead in a circle"};
}

Cause TooLong(const Evidence& e) {
    for (const std::string& path : {e.record.src, e.record.dst}) {
        for (std::size_t begin = 0; begin < path.size() && !IsCutPath(path);) {
            const std::size_t end = std::min(path.find('/', begin), path.size());
            if (end - begin > NAME_MAX) {
                return {"name-too-long", path,
                        "the name " + path.substr(begin, end - begin) + " is longer than 255 bytes"};
            }
            begin = end + 1;
        }
        if (path.size() >= PATH_MAX) {
            return {"path-too-long", path, "the path " + path + " is longer than 4095 bytes"};
        }
    }
    return {};
}

Cause RunningProgram(const Evidence& e) {
    const std::string& dst = e.record.dst;
    const bool isSo = e.IsType("COPY") && e.Is(dst, S_IFREG);
    return isSo ? Cause{"busy-file", dst, e.Named(dst) + " is a running program, or swap space in use"} : Cause();
}

Cause NoLabels(const Evidence& e) {
    const std::string& src = e.record.src;
    return e.record.type.starts_with("RESTORECON")
               ? Cause{"no-labels", src,
                       "no label policy is installed, or the file system of " + src + " does not support labels"}
               : Cause();
}

Cause OtherFileSystem(const Evidence& e) {
    const StatSnapshot* const src = e.Object(e.record.src);
    const StatSnapshot* const parent = e.Object(e.dstParent);
    const bool isSo = e.HasTwoPaths() && src != nullptr && parent != nullptr && !e.Is(e.dstParent, S_IFLNK) &&
                      src->device != parent->device;
    return isSo ? Cause{"other-file-system", e.dstParent,
                        e.record.src + " and " + e.dstParent + " are on different file systems"}
                : Cause();
}

Cause MountPoint(const Evidence& e) {
    for (const auto& [path, parent] : {std::pair(e.record.src, e.srcParent), {e.record.dst, e.dstParent}}) {
        const StatSnapshot* const object = e.Object(path);
        const StatSnapshot* const above = e.Object(parent);
        // If the parent is a link, its device is not that of the directory that it points to.
        if (e.IsType("MOVE") && object != nullptr && above != nullptr && !e.Is(parent, S_IFLNK) &&
            above->device != object->device) {
            return {"mount-point", path, e.Named(path) + " is a mount point"};
        }
    }
    return {};
}

Cause ReadOnly(const Evidence& e) {
    return {"read-only", e.Target(), "the file system of " + e.Target() + " is read-only"};
}

Cause NoSpace(const Evidence& e) {
    return {"no-space", e.Target(), "no space or no inode is left on the file system of " + e.Target()};
}

Cause NoQuota(const Evidence& e) {
    return {"quota", e.Target(), "the quota on the file system of " + e.Target() + " is used up"};
}

Cause NoDescriptor(const Evidence& /*e*/) {
    return {"daemon-descriptors", "", "the daemon had reached its limit of open files"};
}

Cause NoDescriptorInSystem(const Evidence& /*e*/) {
    return {"system-descriptors", "", "the system had reached its limit of open files"};
}

Cause DiskFailed(const Evidence& e) {
    return {"io-error", e.Target(), "the disk or its backing store failed; see the kernel log"};
}

Cause NoMemory(const Evidence& /*e*/) {
    return {"no-memory", "", "the system had no memory left"};
}

Cause CorruptFileSystem(const Evidence& e) {
    return {"corrupt", e.Target(), "the file system of " + e.Target() + " is damaged; check it with fsck"};
}

Cause TooManySubdirectories(const Evidence& e) {
    const std::string& parent = e.HasTwoPaths() ? e.dstParent : e.srcParent;
    return {"too-many-links", parent, e.Named(parent) + " cannot hold more subdirectories on its file system"};
}

Cause TooLarge(const Evidence& e) {
    return {"too-large", e.record.src,
            "the file is larger than the file system of " + e.Target() + " or the daemon's own limit allows"};
}

/// /proc and /sys have no files of their own; cgroups, below /sys/fs, accept new directories.
Cause KernelFileSystem(const Evidence& e) {
    for (const std::string& path : {e.record.dst, e.IsType("COPY") ? std::string() : e.record.src}) {
        const bool isInSys = path.starts_with("/sys/") && !path.starts_with("/sys/fs/cgroup/");
        if (path.starts_with("/proc/") || isInSys) {
            return {"kernel-file-system", path,
                    e.Named(path) + " is in " + (isInSys ? "/sys" : "/proc") +
                        ", where the kernel allows no such change" +
                        (e.record.errorNumber == EROFS ? ", and it is mounted read-only for the daemon" : "")};
        }
    }
    return {};
}

}  // namespace TAVO::FileMigrateOrvane::Reader
