#include "top_path.h"

#include <sys/stat.h>

#include <cerrno>

namespace TAVO::FileMigrateOrvane {

TopPath::TopPath(const std::string& path) : name(path), text(path), demandsDirectory(false) {
    const std::size_t last = path.find_last_not_of('/');
    if (last != std::string::npos && last + 1 < path.length()) {
        name.resize(last + 1);
        demandsDirectory = true;
    }
}

mode_t TopPath::Type() const {
    struct stat st {};
    return lstat(name.c_str(), &st) == 0 ? st.st_mode & S_IFMT : 0;
}

int TopPath::Check() const {
    const mode_t type = demandsDirectory ? Type() : 0;
    return type == 0 || type == S_IFDIR ? 0 : ENOTDIR;
}

}  // namespace TAVO::FileMigrateOrvane
