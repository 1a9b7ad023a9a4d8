#include <sys/stat.h>

#include <utility>

#include "causes.h"

namespace TAVO::FileMigrateOrvane {

Cause NoLabels(const Evidence& e) {
    return e.record.type.starts_with("RESTORECON")
               ? "no label policy is installed, or the file system of " + e.record.src + " keeps no labels"
               : "";
}

Cause OtherFileSystem(const Evidence& e) {
    const StatSnapshot* const src = e.Object(e.record.src);
    const StatSnapshot* const parent = e.Object(e.dstParent);
    const bool isSo = e.HasTwoPaths() && src != nullptr && parent != nullptr && !e.Is(e.dstParent, S_IFLNK) &&
                      src->device != parent->device;
    return isSo ? e.record.src + " and " + e.dstParent + " are on different file systems" : "";
}

Cause MountPoint(const Evidence& e) {
    for (const auto& [path, parent] : {std::pair(e.record.src, e.srcParent), {e.record.dst, e.dstParent}}) {
        const StatSnapshot* const object = e.Object(path);
        const StatSnapshot* const above = e.Object(parent);
        // A link's own device says nothing about the directory that it leads to.
        if (e.IsType("MOVE") && object != nullptr && above != nullptr && !e.Is(parent, S_IFLNK) &&
            above->device != object->device) {
            return e.Named(path) + " is a mount point";
        }
    }
    return {};
}

Cause ReadOnly(const Evidence& e) {
    return "the file system of " + e.Target() + " is read-only";
}

Cause NoSpace(const Evidence& e) {
    return "no space, or no inode, is left on the file system of " + e.Target();
}

Cause NoQuota(const Evidence& e) {
    return "the quota on the file system of " + e.Target() + " is used up";
}

Cause DaemonsFiles(const Evidence& /*e*/) {
    return "the daemon had as many files open as it may have";
}

Cause SystemsFiles(const Evidence& /*e*/) {
    return "all processes together had as many files open as the system allows";
}

Cause BrokenDisk(const Evidence& /*e*/) {
    return "the disk, or what stands for it, failed: the kernel log tells more";
}

Cause NoMemory(const Evidence& /*e*/) {
    return "no memory was left";
}

}  // namespace TAVO::FileMigrateOrvane
