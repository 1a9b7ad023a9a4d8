#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <tuple>
#include <utility>
#include <vector>

#include "causes.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

constexpr std::uint32_t PROTECTED = FS_IMMUTABLE_FL | FS_APPEND_FL;

Cause Protected(const Evidence& e, const std::string& path, std::uint32_t flags) {
    if (e.HasFlag(path, flags & FS_IMMUTABLE_FL)) {
        return {"immutable", path, e.Named(path) + " has the immutable flag"};
    }
    return e.HasFlag(path, flags & FS_APPEND_FL)
               ? Cause{"append-only", path, e.Named(path) + " has the append-only flag"}
               : Cause();
}

std::vector<std::string> PathsOf(const Evidence& e) {
    return {e.record.src, e.record.dst, e.srcParent, e.dstParent};
}

/// "; labels: /data/a LABEL, /data LABEL" for the objects with a known label; empty if there are none.
std::string Labels(const Evidence& e) {
    std::vector<std::pair<std::string, std::string_view>> labels;
    for (const std::string& path : PathsOf(e)) {
        const bool isKnown =
            std::any_of(labels.begin(), labels.end(), [&](const auto& known) { return known.first == path; });
        if (!isKnown && e.Object(path) != nullptr && !e.Label(path).empty()) {
            labels.emplace_back(path, e.Label(path));
        }
    }
    const bool isOneLabel = std::all_of(labels.begin(), labels.end(),
                                        [&](const auto& label) { return label.second == labels.front().second; });
    if (isOneLabel && labels.size() > 1) {
        return std::string("; all have the label ").append(labels.front().second);
    }
    std::string text;
    for (const auto& [path, label] : labels) {
        text.append(text.empty() ? "; labels: " : ", ").append(path).append(" ").append(label);
    }
    return text;
}

}  // namespace

Cause Flagged(const Evidence& e) {
    const std::string& dst = e.record.dst;
    // The objects that each call changes. New names can be added to an append-only directory, but none removed.
    std::vector<std::pair<std::string, std::uint32_t>> needed;
    if (e.IsType("CHOWN")) {
        needed = {{e.record.src, PROTECTED}};
    } else if (e.IsType("MOVE")) {
        needed = {{e.record.src, PROTECTED},
                  {dst, PROTECTED},
                  {e.srcParent, PROTECTED},
                  {e.dstParent, e.Object(dst) == nullptr ? FS_IMMUTABLE_FL : PROTECTED}};
    } else if (e.IsType("COPY") && e.ErrorOf(dst) == ENOENT) {
        needed = {{e.dstParent, FS_IMMUTABLE_FL}};
    } else if (e.IsType("COPY") && e.Is(dst, S_IFREG)) {
        needed = {{dst, PROTECTED}};
    }
    for (const auto& [path, flags] : needed) {
        if (Cause cause = Protected(e, path, flags); !cause.word.empty()) {
            return cause;
        }
    }
    return {};
}

/// In a sticky directory only the owner of the directory or of the object may remove the object's name.
Cause Sticky(const Evidence& e) {
    const ProcessSnapshot* const process = e.Process();
    if (!e.IsType("MOVE") || process == nullptr || !e.Lacks(CAP_FOWNER)) {
        return {};
    }
    for (const auto& [path, parent] : {std::pair(e.record.src, e.srcParent), {e.record.dst, e.dstParent}}) {
        const StatSnapshot* const object = e.Object(path);
        const StatSnapshot* const above = e.Object(parent);
        if (object != nullptr && above != nullptr && (above->mode & S_ISVTX) != 0 && object->uid != process->euid &&
            above->uid != process->euid) {
            return {"sticky", parent,
                    e.Named(parent) + " is sticky; the daemon, user " + std::to_string(process->euid) +
                        ", owns neither it nor " + path + " and does not have cap_fowner"};
        }
    }
    return {};
}

Cause MayNotChown(const Evidence& e) {
    const ProcessSnapshot* const process = e.Process();
    const StatSnapshot* const object = e.Object(e.record.src);
    if (!e.IsType("CHOWN") || process == nullptr || object == nullptr || !e.Lacks(CAP_CHOWN)) {
        return {};
    }
    const bool isOwner = object->uid == process->euid;
    if (isOwner && e.record.user == std::to_string(object->uid)) {
        return {};
    }
    return {"no-cap-chown", e.record.src,
            "the daemon does not have cap_chown" + (isOwner ? "" : " and does not own " + e.record.src)};
}

/// With fs.protected_regular, not even root may open another user's file for writing in a sticky directory that others
/// can write to. The record does not show whether it is enabled.
Cause StickyFile(const Evidence& e) {
    const ProcessSnapshot* const process = e.Process();
    const StatSnapshot* const file = e.Object(e.record.dst);
    const StatSnapshot* const above = e.Object(e.dstParent);
    const bool isSo = e.IsType("COPY") && e.Holds(CAP_DAC_OVERRIDE) && e.Is(e.record.dst, S_IFREG) &&
                      above != nullptr && (above->mode & S_ISVTX) != 0 && (above->mode & (S_IWOTH | S_IWGRP)) != 0 &&
                      file->uid != above->uid && file->uid != process->euid;
    return isSo ? Cause{"protected-regular", e.record.dst,
                        "fs.protected_regular, or a security module: " + e.Named(e.record.dst) +
                            " is another user's file in a sticky directory" + Labels(e)}
                : Cause();
}

constexpr std::uint32_t READ = 4;
constexpr std::uint32_t WRITE = 2;
constexpr std::uint32_t SEARCH = 1;

/// Whether the permission bits refuse `wanted` to the daemon. Its supplementary groups are not in the record, but if
/// one of them had allowed the access there would be no failure.
bool Refuses(const StatSnapshot& object, const ProcessSnapshot& process, std::uint32_t wanted) {
    const std::uint32_t shift = object.uid == process.euid ? 6 : object.gid == process.egid ? 3 : 0;
    return (object.mode >> shift & wanted) != wanted;
}

/// Permission bits that stop a daemon without CAP_DAC_OVERRIDE.
Cause MissingCapability(const Evidence& e) {
    const ProcessSnapshot* const process = e.Process();
    if (process == nullptr || !e.Lacks(CAP_DAC_OVERRIDE)) {
        return {};
    }
    const std::string& src = e.record.src;
    const std::string& dst = e.record.dst;
    const bool isMove = e.IsType("MOVE");
    const bool isNew = e.Object(dst) == nullptr;
    const std::tuple<std::string, std::uint32_t, const char*> needed[] = {
        {e.srcParent, isMove ? WRITE | SEARCH : SEARCH, isMove ? "write to " : "search "},
        {e.dstParent, isMove || isNew ? WRITE | SEARCH : SEARCH, "write to "},
        {src,
         isMove || !e.IsType("COPY") ? 0
         : e.Is(src, S_IFDIR)        ? READ | SEARCH
                                     : READ,
         "read "},
        {dst, isMove || !e.Is(dst, S_IFREG) ? 0 : WRITE, "write to "},
    };
    for (const auto& [path, wanted, doing] : needed) {
        const StatSnapshot* const object = e.Object(path);
        if (object != nullptr && !S_ISLNK(object->mode) && Refuses(*object, *process, wanted)) {
            return {"no-cap-dac-override", path,
                    "the daemon may not " + (doing + e.Named(path)) + ": " + StatInWords(*object).substr(0, 10) + " " +
                        std::to_string(object->uid) + ":" + std::to_string(object->gid) + ", and the daemon, user " +
                        std::to_string(process->euid) + ", does not have cap_dac_override"};
        }
    }
    for (const std::string& path : PathsOf(e)) {
        if (e.ErrorOf(path) == EACCES) {
            return {"no-cap-dac-override", path,
                    "the daemon may not search a directory above " + path + ", and does not have cap_dac_override"};
        }
    }
    return {};
}

/// Permission bits do not stop a process with CAP_DAC_OVERRIDE, but fs.protected_symlinks does, at another user's link
/// in a sticky directory.
Cause Denied(const Evidence& e) {
    if (!e.Holds(CAP_DAC_OVERRIDE)) {
        return {};
    }
    const std::vector<std::string> paths = PathsOf(e);
    const bool mayMeetLink = std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
        return e.Is(path, S_IFLNK) || e.ErrorOf(path) == EACCES;
    });
    const std::string who = mayMeetLink
                                ? "denied by a security module, the file system's server, or fs.protected_symlinks"
                                : "denied by a security module, or by the file system's server";
    return {"denied", e.record.src, who + Labels(e)};
}

}  // namespace TAVO::FileMigrateOrvane::Reader
