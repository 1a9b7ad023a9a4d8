#include "control_socket.h"

#include <sys/socket.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <cstring>

#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// The descriptors that init passed: `count` of them from SD_LISTEN_FDS_START on, each with a name.
class PassedSockets {
public:
    // Leaves the environment unchanged. It contains the id of this process, so other processes ignore it.
    PassedSockets() : count(sd_listen_fds_with_names(/*unset_environment=*/0, &names)) {}
    ~PassedSockets() {
        for (int i = 0; i < count; ++i) {
            std::free(names[i]);
        }
        std::free(names);
    }
    PassedSockets(const PassedSockets&) = delete;
    PassedSockets& operator=(const PassedSockets&) = delete;

    [[nodiscard]] int Count() const { return count; }
    [[nodiscard]] const char* Name(int index) const { return names[index]; }

private:
    char** names = nullptr;
    const int count;
};

bool IsListeningLocalStream(int fd) {
    return sd_is_socket_unix(fd, SOCK_STREAM, /*listening=*/1, /*path=*/nullptr, 0) > 0;
}

}  // namespace

int GetControlSocket(const char* name) {
    const PassedSockets passed;
    if (passed.Count() < 0) {
        LogWarn("init's sockets can't be read, error %{public}d", -passed.Count());
        return -1;
    }
    int found = -1;
    for (int i = 0; i < passed.Count(); ++i) {
        if (std::strcmp(passed.Name(i), name) != 0) {
            LogWarn("socket %{public}s from init is not %{public}s, not used", passed.Name(i), name);
        } else if (found >= 0) {
            LogWarn("more than one socket %{public}s from init, none used", name);
            return -1;
        } else {
            found = SD_LISTEN_FDS_START + i;
        }
    }
    if (found >= 0 && !IsListeningLocalStream(found)) {
        LogWarn("socket %{public}s from init is not a listening local stream socket, not used", name);
        return -1;
    }
    return found;
}

}  // namespace TAVO::FileMigrateOrvane
