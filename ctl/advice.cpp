#include "advice.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr const char* HOW_TO_START =
    "start it with \"systemctl start file_migrate_orvane.socket\", or run file_migrate_orvane as root";

// NOLINTBEGIN(concurrency-mt-unsafe): called by one thread only
std::string UserName(uid_t uid) {
    const passwd* entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : std::to_string(uid);
}

std::string GroupName(gid_t gid) {
    const group* entry = getgrgid(gid);
    return entry != nullptr ? entry->gr_name : std::to_string(gid);
}
// NOLINTEND(concurrency-mt-unsafe)

/// Who may connect; connecting needs write permission on the socket.
std::string WhoMayConnect(const std::string& socketPath) {
    struct stat st {};
    if (stat(socketPath.c_str(), &st) != 0) {
        return "run orvanectl as root: you may not access the directory of the socket";
    }
    if ((st.st_mode & S_IWGRP) != 0) {
        return "the socket belongs to the group \"" + GroupName(st.st_gid) +
               "\": run orvanectl as root or as a member of it";
    }
    return "the socket belongs to \"" + UserName(st.st_uid) + "\" alone: run orvanectl as that user or as root";
}

}  // namespace

std::string Advice(const std::error_code& code, const std::string& socketPath) {
    if (code == std::errc::no_such_file_or_directory) {
        const std::string directory = std::filesystem::path(socketPath).parent_path();
        return std::string("the daemon is not running: ") + HOW_TO_START +
               (access(directory.c_str(), F_OK) == 0 ? "" : "; it needs the directory " + directory);
    }
    if (code == std::errc::connection_refused) {
        return std::string("no daemon listens on the socket: ") + HOW_TO_START;
    }
    return code == std::errc::permission_denied ? WhoMayConnect(socketPath) : std::string();
}

std::string OwnerAndMode(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        return {};
    }
    std::array<char, 16> mode{};
    (void)std::snprintf(mode.data(), mode.size(), " %04o", st.st_mode & 07777U);
    return UserName(st.st_uid) + ":" + GroupName(st.st_gid) + mode.data();
}

std::string ObstacleTo(const std::string& path) {
    std::filesystem::path obstacle(path);
    struct stat st {};
    while (stat(obstacle.c_str(), &st) != 0 && obstacle.has_relative_path()) {
        obstacle = obstacle.parent_path();
    }
    return obstacle;
}

/// The path must be readable; a directory on the way to it must be searchable.
std::string AccessHint(const std::string& path) {
    const std::string obstacle = ObstacleTo(path);
    const mode_t needed = obstacle == path ? S_IRGRP : S_IXGRP;
    struct stat st {};
    if (stat(obstacle.c_str(), &st) != 0) {
        return "run this as root";
    }
    if ((st.st_mode & needed) == 0 || st.st_gid == 0) {
        return "run this as root";
    }
    return "run this as root, or as a member of the group " + GroupName(st.st_gid);
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
