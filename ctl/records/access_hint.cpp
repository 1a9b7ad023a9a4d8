#include "access_hint.h"

#include <grp.h>
#include <sys/stat.h>

#include <filesystem>

namespace TAVO::FileMigrateOrvane {

std::string AccessHint(const std::string& path) {
    std::filesystem::path obstacle(path);
    struct stat st {};
    mode_t needed = S_IRGRP;
    while (stat(obstacle.c_str(), &st) != 0) {
        if (!obstacle.has_relative_path()) {
            return "run this as root";
        }
        obstacle = obstacle.parent_path();
        needed = S_IXGRP;  // a directory on the way
    }
    if ((st.st_mode & needed) == 0 || st.st_gid == 0) {
        return "run this as root";
    }
    const group* owner = getgrgid(st.st_gid);  // NOLINT(concurrency-mt-unsafe): one thread
    return "run this as root, or as a member of the group " +
           (owner != nullptr ? std::string(owner->gr_name) : std::to_string(st.st_gid));
}

}  // namespace TAVO::FileMigrateOrvane
