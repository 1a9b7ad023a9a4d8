#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "causes.h"
#include "record_types.h"

namespace TAVO::FileMigrateOrvane {
namespace {

bool IsOther(const Evidence& e, const std::string& path) {
    return e.Object(path) != nullptr && !e.Is(path, S_IFREG) && !e.Is(path, S_IFDIR) && !e.Is(path, S_IFLNK);
}

/// Of a type that was looked at itself, and without snapshots: the error is that of the look.
bool IsPlainLook(const Evidence& e) {
    const RecordType& type = TypeOf(e.record.type);
    return !type.name.empty() && type.line.hasSrc && type.snapshots.empty();
}

/// With a "/" at its end a path has to be a directory itself, too.
Cause NoDirectoryOnTheWay(const std::string& path) {
    return (path.ends_with('/') ? path + " or something above it" : std::string("something above ").append(path))
        .append(" is not a directory");
}

}  // namespace

Cause MissingParent(const Evidence& e) {
    for (const std::string& parent : e.Parents()) {
        if (e.ErrorOf(parent) == ENOENT) {
            return e.Named(parent) + " does not exist";
        }
        const FlagsSnapshot* const flags = e.Flags(parent);
        const bool isDangling =
            flags != nullptr ? flags->failedStep == "realpath" && flags->errorNumber == ENOENT : e.IsType("MKDIR");
        if (e.Is(parent, S_IFLNK) && isDangling) {
            return e.Named(parent) + " is a symbolic link that leads nowhere";
        }
    }
    return {};
}

Cause MissingSource(const Evidence& e) {
    if (e.IsType("MKDIR") || (e.ErrorOf(e.record.src) != ENOENT && !IsPlainLook(e))) {
        return {};
    }
    return e.record.src.empty() ? "the path is empty" : e.Named(e.record.src) + " does not exist";
}

Cause ParentIsNoDirectory(const Evidence& e) {
    for (const std::string& parent : e.Parents()) {
        if (e.Object(parent) != nullptr && !e.Is(parent, S_IFDIR) && !e.Is(parent, S_IFLNK)) {
            return e.IsA(parent);
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
    return IsPlainLook(e) && !e.record.type.starts_with("OPEN_") ? NoDirectoryOnTheWay(e.record.src) : "";
}

Cause SourceIsNoDirectory(const Evidence& e) {
    const bool isForDirectories = e.record.type.starts_with("OPEN_") || e.IsType("LISTDIR_OPEN") || e.IsType("RMDIR");
    const bool isOne = e.Object(e.record.src) == nullptr || e.Is(e.record.src, S_IFDIR);
    return isForDirectories && !isOne ? e.IsA(e.record.src) + ", not a directory" : "";
}

Cause DirectoryOntoOther(const Evidence& e) {
    const bool isSo = e.HasTwoPaths() && e.Is(e.record.src, S_IFDIR) && e.Object(e.record.dst) != nullptr &&
                      !e.Is(e.record.dst, S_IFDIR);
    return isSo ? e.IsA(e.record.src) + ", and " + e.IsA(e.record.dst) : "";
}

Cause OtherOntoDirectory(const Evidence& e) {
    const bool isSo = e.IsType("MOVE") && e.Object(e.record.src) != nullptr && !e.Is(e.record.src, S_IFDIR) &&
                      e.Is(e.record.dst, S_IFDIR);
    return isSo ? e.IsA(e.record.dst) + ", and " + e.IsA(e.record.src) : "";
}

Cause UnlinkedDirectory(const Evidence& e) {
    return e.IsType("Unlink") && e.Is(e.record.src, S_IFDIR) ? e.IsA(e.record.src) : "";
}

Cause NotEmpty(const Evidence& e) {
    if (e.IsType("MOVE") && e.Is(e.record.src, S_IFDIR) && e.Is(e.record.dst, S_IFDIR)) {
        return e.Named(e.record.dst) + " is a directory that is not empty";
    }
    return e.IsType("RMDIR") || e.IsType("REMOVE") ? e.record.src + " is not empty: something in it is left" : "";
}

Cause SameFile(const Evidence& e) {
    const StatSnapshot* const src = e.Object(e.record.src);
    const StatSnapshot* const dst = e.Object(e.record.dst);
    const bool isSame =
        e.IsType("COPY") && src != nullptr && dst != nullptr && src->device == dst->device && src->inode == dst->inode;
    return isSame ? "the source " + e.record.src + " and the destination " + e.record.dst + " are the same object" : "";
}

Cause IntoItself(const Evidence& e) {
    const std::string& src = e.record.src;
    const bool isInside = e.record.dst.starts_with(src.ends_with('/') ? src : src + "/");
    return e.HasTwoPaths() && e.Is(src, S_IFDIR) && isInside
               ? "the destination " + e.record.dst + " lies inside the source " + src
               : "";
}

Cause NotCopied(const Evidence& e) {
    for (const std::string& path : {e.record.src, e.record.dst}) {
        if (e.IsType("COPY") && IsOther(e, path)) {
            return e.IsA(path) + ": only files and directories are copied";
        }
    }
    return {};
}

Cause DestinationIsLink(const Evidence& e) {
    const bool isSo = e.IsType("COPY") && e.Is(e.record.dst, S_IFLNK);
    return isSo ? e.IsA(e.record.dst) + ", which is not written through" : "";
}

Cause LinkHasNoMode(const Evidence& e) {
    const bool isSo = e.IsType("CHMOD") && e.Is(e.record.src, S_IFLNK);
    return isSo ? e.IsA(e.record.src) + ", which has no mode of its own" : "";
}

Cause Links(const Evidence& e) {
    return e.Is(e.record.src, S_IFLNK) ? e.IsA(e.record.src) + " that is not followed, or leads in a circle"
                                       : "the symbolic links on the way are too many, or lead in a circle";
}

Cause TooLong(const Evidence& e) {
    for (const std::string& path : {e.record.src, e.record.dst}) {
        for (std::size_t begin = 0; begin < path.size();) {
            const std::size_t end = std::min(path.find('/', begin), path.size());
            if (end - begin > NAME_MAX) {
                return "the name " + path.substr(begin, end - begin) + " is longer than 255 bytes";
            }
            begin = end + 1;
        }
        if (path.size() >= PATH_MAX) {
            return "the path " + path + " is longer than 4095 bytes";
        }
    }
    return {};
}

Cause Program(const Evidence& e) {
    const bool isSo = e.IsType("COPY") && e.Is(e.record.dst, S_IFREG);
    return isSo ? e.Named(e.record.dst) + " is a program that is running, or swap space in use" : "";
}

}  // namespace TAVO::FileMigrateOrvane
