#include "socket_server.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>
#include <string>
#include <utility>

#include "bounded_copy.h"
#include "control_socket.h"
#include "log.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr const char* SOCKET_NAME = "file_migrate_orvane";
const std::string kSocketPath = "/dev/unix/socket/file_migrate_orvane";
constexpr int LISTEN_BACKLOG = 100;
constexpr int WAIT_MS = 100;
constexpr std::uint64_t IDLE_LIMIT_MS = 600000;
constexpr std::uint32_t ACCEPT_PAUSE_MS = 100;

/// Milliseconds of the monotonic clock, truncated to 32 bits; 0 if the clock fails.
std::uint32_t MonotonicMs() {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return 0;
    }
    return static_cast<std::uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

/// Creates the listening socket if init did not pass one. Returns -1 on failure. If the path cannot be copied, it
/// returns that error number, which the caller mistakes for a descriptor because it only checks for a result below 1.
int CreateServerSocket() {
    // Not closed after a failure, because the process is about to end.
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 1) {
        LogError("Failed to create socket");
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int copied =
        strncpy_s(address.sun_path, sizeof(address.sun_path) - 1, kSocketPath.c_str(), kSocketPath.length());
    if (copied != 0) {
        LogError("Failed to set socket path");
        return copied;
    }
    const mode_t callers = umask(S_IXUSR | S_IRWXG | S_IRWXO);  // the socket gets mode 0600
    const int bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    umask(callers);
    if (bound < 0) {
        LogError("Failed to bind socket");
        return -1;
    }
    if (listen(fd, LISTEN_BACKLOG) < 0) {
        LogError("Failed to listen socket");
        return -1;
    }
    return fd;
}

/// Sets the events for which epoll watches a descriptor; false, with errno set, on failure.
/// @param operation  EPOLL_CTL_ADD or EPOLL_CTL_MOD
bool Watch(int epfd, int operation, int fd, std::uint32_t flags) {
    epoll_event event{};
    event.events = flags;
    event.data.fd = fd;
    return epoll_ctl(epfd, operation, fd, &event) == 0;
}

/// Walks need the other half, one or two descriptors for each level of a tree.
std::size_t HalfOfDescriptorLimit() {
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);  // cannot fail
    return std::max<std::size_t>(limit.rlim_cur / 2, 1);
}

}  // namespace

FileMigrateSocketServer::FileMigrateSocketServer()
    : maxConnections(HalfOfDescriptorLimit()),
      events{},
      taskMutex{},
      taskCond{},
      taskTail(nullptr),
      tasksInProgress(0),
      exitFlag(false),
      isShutDown(false),
      acceptPaused(false),
      acceptPausedAt(0) {
    memset_s(events, sizeof(events), 0, sizeof(events));
}

FileMigrateSocketServer::~FileMigrateSocketServer() {
    const std::lock_guard lock(fdMapMutex);
    for (const auto& [fd, refcnt] : fdMap) {
        LogRoutine(LogLevel::Error, "closefd: %{public}d, refcnt: %{public}d", fd, refcnt);
        close(fd);
    }
}

void FileMigrateSocketServer::CreateServer() {
    int listenFd = GetControlSocket(SOCKET_NAME);
    LogInfo("Get socket from env %{public}s socketId %{public}d", kSocketPath, listenFd);
    if (listenFd < 1) {
        listenFd = CreateServerSocket();
        if (listenFd < 1) {
            LogError("Failed to create socket %{public}s", kSocketPath);
            return;
        }
    }
    pthread_mutex_init(&taskMutex, nullptr);
    pthread_cond_init(&taskCond, nullptr);
    if (ThreadPoolInit() == 0) {
        const int epfd = epoll_create1(EPOLL_CLOEXEC);
        Watch(epfd, EPOLL_CTL_ADD, listenFd, EPOLLIN);
        EpollHandler(epfd, listenFd);
        LogRoutine(LogLevel::Error, "closefd: %{public}d", epfd);
        close(epfd);
        ReleaseThreadTask(WORKER_COUNT);
    }
    pthread_cond_destroy(&taskCond);
    pthread_mutex_destroy(&taskMutex);
}

void FileMigrateSocketServer::EpollHandler(int epfd, int listenFd) {
    std::uint32_t lastActivity = MonotonicMs();
    while (!isShutDown) {
        const int count = epoll_wait(epfd, events, MAX_EVENTS, WAIT_MS);
        if (acceptPaused) {
            ResumeAccepting(epfd, listenFd);
        }
        if (count > 0) {
            HandleEvents(epfd, listenFd, count);
        }
        if (count > 0 || tasksInProgress > 0) {
            lastActivity = MonotonicMs();
            continue;
        }
        // The operands are widened before the subtraction, so a count that has wrapped, or a failed clock, ends an idle
        // loop at once.
        const std::uint64_t idle = std::uint64_t{MonotonicMs()} - std::uint64_t{lastActivity};
        if (idle >= IDLE_LIMIT_MS) {
            break;
        }
    }
    LogInfo("Maser thread EpollHandler end.");
}

void FileMigrateSocketServer::HandleEvents(int epfd, int listenFd, int count) {
    for (int i = 0; i < count; ++i) {
        try {
            HandlerEpollin(epfd, listenFd, events[i]);
        } catch (const std::bad_alloc&) {
            const int fd = events[i].data.fd;
            LogError("out of memory, connection dropped, fd: %{public}d", fd);
            if (fd != listenFd) {
                DropConnection(epfd, fd);
            }
        }
    }
}

void FileMigrateSocketServer::HandlerEpollin(int epfd, int listenFd, const epoll_event& event) {
    const int fd = event.data.fd;
    if (fd == listenFd) {
        EpollAccept(epfd, listenFd);
    } else if ((event.events & EPOLLHUP) != 0) {
        LogRoutine(LogLevel::Error, "EPOLLHUP fd: %{public}d", fd);
        DropConnection(epfd, fd);
    } else if ((event.events & EPOLLIN) != 0 && fd >= 0) {
        AddThreadTask(fd);
    }
}

void FileMigrateSocketServer::EpollAccept(int epfd, int listenFd) {
    UniqueFd accepted(accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC));
    if (!accepted) {
        LogError("Failed to accept client connect request");
        if (errno == EINVAL) {
            // The socket was shut down: it stays readable, and no client can connect any more.
            isShutDown = true;
            return;
        }
        PauseAccepting(epfd, listenFd);
        return;
    }
    const int fd = accepted.Get();
    LogRoutine(LogLevel::Error, "acceptfd: %{public}d", fd);
    if (!Watch(epfd, EPOLL_CTL_ADD, fd, EPOLLIN | EPOLLET)) {
        // Without the watch, the loop would never see the client's requests or its hang-up.
        LogError("epoll_ctl failed, connection dropped, fd: %{public}d, errno: %{public}d", fd, errno);
        return;
    }
    AddConnection(std::move(accepted));
    if (!HasRoomForConnection()) {
        LogWarn("%{public}lu connections, no more are accepted until one is closed", maxConnections);
        PauseAccepting(epfd, listenFd);
    }
}

void FileMigrateSocketServer::AddConnection(UniqueFd accepted) {
    const std::lock_guard lock(fdMapMutex);
    const int fd = accepted.Get();
    const bool isNew = fdMap.emplace(fd, 1).second;
    (void)accepted.Release();  // fdMap owns the descriptor now
    if (!isNew) {
        LogError({"%{public}d already in fdMap", "EpollAccept"}, fd);
        return;
    }
    LogRoutine(LogLevel::Debug, {"insert %{public}d to fdMap", "EpollAccept"}, fd);
}

bool FileMigrateSocketServer::HasRoomForConnection() {
    const std::lock_guard lock(fdMapMutex);
    return fdMap.size() < maxConnections;
}

void FileMigrateSocketServer::DropConnection(int epfd, int fd) {
    epoll_ctl(epfd, EPOLL_CTL_DEL, fd, nullptr);
    SubFdRef(fd);
}

void FileMigrateSocketServer::PauseAccepting(int epfd, int listenFd) {
    Watch(epfd, EPOLL_CTL_MOD, listenFd, 0);  // cannot fail, unlike removing the socket and adding it again
    acceptPaused = true;
    acceptPausedAt = MonotonicMs();
}

void FileMigrateSocketServer::ResumeAccepting(int epfd, int listenFd) {
    if (MonotonicMs() - acceptPausedAt >= ACCEPT_PAUSE_MS && HasRoomForConnection()) {
        acceptPaused = false;
        Watch(epfd, EPOLL_CTL_MOD, listenFd, EPOLLIN);
    }
}

bool FileMigrateSocketServer::AddFdRef(int fd) {
    const std::lock_guard lock(fdMapMutex);
    const auto entry = fdMap.find(fd);
    if (entry == fdMap.end()) {
        LogRoutine(LogLevel::Error, "%{public}d not found int fdMap", fd);  // its client has hung up
        return false;
    }
    ++entry->second;
    LogRoutine(LogLevel::Debug, "fd:%{public}d, refcnt:%{public}d", fd, entry->second);
    return true;
}

bool FileMigrateSocketServer::SubFdRef(int fd) {
    const std::lock_guard lock(fdMapMutex);
    const auto entry = fdMap.find(fd);
    if (entry == fdMap.end()) {
        LogError("%{public}d not found int fdMap", fd);
        return false;
    }
    if (entry->second < 1) {
        LogError("%{public}d refcnt abnormal: %{public}d", fd, entry->second);
        return false;
    }
    if (entry->second == 1) {
        // Closed while the lock is held, so that no thread takes a reference on the number in between.
        fdMap.erase(entry);
        close(fd);
        LogRoutine(LogLevel::Info, "clear and close fd: %{public}d", fd);
        return true;
    }
    --entry->second;
    LogRoutine(LogLevel::Debug, "fd:%{public}d, refcnt:%{public}d", fd, entry->second);
    return true;
}

}  // namespace TAVO::FileMigrateOrvane
