// A minimal server with the daemon's structure, as the baseline for request rates: one thread waits with epoll, four
// workers take descriptors from a queue, and each request costs a recv(), an access() and a send(). It neither logs nor
// validates.
//
//     bare_loop SOCKET
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <queue>
#include <thread>

#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateOrvane {
namespace {

class Queue {
public:
    void Push(int fd) {
        {
            const std::lock_guard lock(mutex);
            descriptors.push(fd);
        }
        isFilled.notify_one();
    }

    int Pop() {
        std::unique_lock lock(mutex);
        isFilled.wait(lock, [this] { return !descriptors.empty(); });
        const int fd = descriptors.front();
        descriptors.pop();
        return fd;
    }

private:
    std::mutex mutex;
    std::condition_variable isFilled;
    std::queue<int> descriptors;
};

void Work(Queue& queue) {
    FileMigrateRcvMsg request{};
    while (true) {
        const int fd = queue.Pop();
        if (recv(fd, &request, sizeof(request), MSG_DONTWAIT) == sizeof(request)) {
            const FileMigrateResMsg reply{access(request.src, F_OK) == 0 ? 1 : 0, 0, 0};
            (void)!send(fd, &reply, sizeof(reply), MSG_NOSIGNAL);
        }
    }
}

void Watch(int epfd, int fd, std::uint32_t flags) {
    epoll_event event{};
    event.events = flags;
    event.data.fd = fd;
    epoll_ctl(epfd, EPOLL_CTL_ADD, fd, &event);
}

[[noreturn]] void Serve(int listening, Queue& queue) {
    const int epfd = epoll_create1(EPOLL_CLOEXEC);
    Watch(epfd, listening, EPOLLIN);
    epoll_event events[64];
    while (true) {
        const int count = epoll_wait(epfd, events, 64, -1);
        for (int i = 0; i < count; ++i) {
            const int fd = events[i].data.fd;
            if (fd == listening) {
                Watch(epfd, accept4(listening, nullptr, nullptr, SOCK_CLOEXEC), EPOLLIN | EPOLLET);
            } else if ((events[i].events & EPOLLHUP) != 0) {
                close(fd);
            } else {
                queue.Push(fd);
            }
        }
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane

int main(int argc, char* argv[]) {
    using namespace TAVO::FileMigrateOrvane;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (argc != 2 || std::strlen(argv[1]) >= sizeof(address.sun_path)) {
        (void)std::fputs("usage: bare_loop SOCKET\n", stderr);
        return 2;
    }
    std::strcpy(address.sun_path, argv[1]);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listening, 100) != 0) {
        std::perror(argv[1]);
        return 1;
    }
    Queue queue;
    for (int i = 0; i < 4; ++i) {
        std::thread(Work, std::ref(queue)).detach();
    }
    Serve(listening, queue);
}
