#include "sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace TAVO::FileMigrateOrvane {

int SyncFileSystem(const UniqueFd& object, const std::string& path) {
    if (syncfs(object.Get()) == 0) {
        return 0;
    }
    if (errno != EBADF) {
        return errno;
    }
    const UniqueFd again(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return again && syncfs(again.Get()) == 0 ? 0 : errno;
}

}  // namespace TAVO::FileMigrateOrvane
