#include "evidence.h"

#include <sys/stat.h>

#include <algorithm>

#include "explain.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

std::string_view TypeInWords(std::uint32_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "a regular file";
        case S_IFDIR:
            return "a directory";
        case S_IFLNK:
            return "a symbolic link";
        case S_IFIFO:
            return "a pipe";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

}  // namespace

Evidence::Evidence(const Record& toExplain)
    : record(toExplain), srcParent(ParentOf(toExplain.src)), dstParent(ParentOf(toExplain.dst)) {}

std::vector<std::string> Evidence::Parents() const {
    return HasTwoPaths() ? std::vector{srcParent, dstParent} : std::vector{srcParent};
}

const std::string& Evidence::Target() const {
    if (HasTwoPaths()) {
        return Object(record.dst) != nullptr ? record.dst : dstParent;
    }
    return IsType("MKDIR") ? srcParent : record.src;
}

std::string Evidence::Named(const std::string& path) const {
    const std::string_view role = RoleOf(record, path);
    return role.empty() || role == "object" ? path : std::string("the ").append(role).append(" ").append(path);
}

std::string Evidence::IsA(const std::string& path) const {
    return Named(path).append(" is ").append(TypeInWords(Object(path)->mode));
}

int Evidence::ErrorOf(std::string_view path) const {
    const StatSnapshot* const stat = Stat(path);
    return stat != nullptr ? stat->errorNumber : 0;
}

const StatSnapshot* Evidence::Object(std::string_view path) const {
    const StatSnapshot* const stat = Stat(path);
    return stat != nullptr && stat->errorNumber == 0 ? stat : nullptr;
}

bool Evidence::Is(std::string_view path, mode_t type) const {
    const StatSnapshot* const object = Object(path);
    return object != nullptr && (object->mode & S_IFMT) == type;
}

const FlagsSnapshot* Evidence::Flags(std::string_view path) const {
    // The path of a flags snapshot is resolved, so it is found by the stat before it.
    bool isNext = false;
    for (const Snapshot& snapshot : record.snapshots) {
        if (const auto* const stat = std::get_if<StatSnapshot>(&snapshot)) {
            isNext = stat->path == path;
        } else if (const auto* const flags = std::get_if<FlagsSnapshot>(&snapshot); flags != nullptr && isNext) {
            return flags;
        }
    }
    return nullptr;
}

bool Evidence::HasFlag(std::string_view path, std::uint32_t flag) const {
    const FlagsSnapshot* const flags = Flags(path);
    return flags != nullptr && (flags->flags & flag) != 0 && Object(path) != nullptr && !Is(path, S_IFLNK);
}

std::string_view Evidence::Label(std::string_view path) const {
    for (const Snapshot& snapshot : record.snapshots) {
        const auto* const attribute = std::get_if<AttributeSnapshot>(&snapshot);
        if (attribute != nullptr && attribute->path == path && attribute->key == "security.selinux" &&
            attribute->value && !Is(path, S_IFLNK)) {
            return *attribute->value;
        }
    }
    return {};
}

const ProcessSnapshot* Evidence::Process() const {
    for (const Snapshot& snapshot : record.snapshots) {
        if (const auto* const process = std::get_if<ProcessSnapshot>(&snapshot)) {
            return process->errorNumber == 0 ? process : nullptr;
        }
    }
    return nullptr;
}

const StatSnapshot* Evidence::Stat(std::string_view path) const {
    for (const Snapshot& snapshot : record.snapshots) {
        const auto* const stat = std::get_if<StatSnapshot>(&snapshot);
        if (stat != nullptr && stat->path == path) {
            return stat;
        }
    }
    return nullptr;
}

bool Evidence::AllReadings(int capability, bool isHeld) const {
    const ProcessSnapshot* const process = Process();
    if (process == nullptr) {
        return false;
    }
    const std::vector<CapabilityReading> readings = CapabilityReadings(process->effective);
    return !readings.empty() && std::all_of(readings.begin(), readings.end(), [&](const CapabilityReading& reading) {
        return ((reading.bits >> static_cast<unsigned int>(capability) & 1U) != 0) == isHeld;
    });
}

}  // namespace TAVO::FileMigrateOrvane::Reader
