// FileMigrateSocketServer: the listening socket, the event loop, the reference counts of the connections and the
// pool of four workers. There is one instance, on main's stack.
//
// The main thread runs CreateServer and everything it calls: it accepts, queues readable connections and notices
// hang-ups. Four workers run ThreadTaskExecute: each takes a connection from the queue, reads one request, has
// it carried out and answered. Both sides call AddFdRef and SubFdRef.
//
// A connection is owned by its reference count: 1 from the accept until the hang-up, 1 more for each worker
// that is reading or answering. Whoever drops the last one closes the descriptor.
#pragma once

#include <pthread.h>
#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace TAVO::FileMigrateOrvane {

/// A connection that became readable, waiting for a worker.
struct TaskNode {
    std::int32_t fd;
    std::unique_ptr<TaskNode> next;
};

class FileMigrateSocketServer {
public:
    FileMigrateSocketServer();
    ~FileMigrateSocketServer();
    FileMigrateSocketServer(const FileMigrateSocketServer&) = delete;
    FileMigrateSocketServer& operator=(const FileMigrateSocketServer&) = delete;

    /// Obtains the listening socket, starts the workers, serves until ten minutes passed without a socket event,
    /// then stops the workers. A failed set-up is logged and ends it at once.
    void CreateServer();

private:
    static constexpr int WORKER_COUNT = 4;
    static constexpr int MAX_EVENTS = 1024;

    void EpollHandler(int epfd, int listenFd);
    /// Handles the first `count` of `events`; one that finds no memory costs its connection.
    void HandleEvents(int epfd, int listenFd, int count);
    void HandlerEpollin(int epfd, int listenFd, const epoll_event& event);
    void EpollAccept(int epfd, int listenFd);
    /// Drops the accept's reference. A peer that shuts down and then closes raises its hang-up twice, so the
    /// descriptor leaves the epoll set first: a second drop would take a worker's reference.
    void DropConnection(int epfd, int fd);
    /// Does not accept for a while: a client that could not be accepted (no descriptor, no memory, not permitted)
    /// leaves the listening socket readable, and the loop would spin.
    void PauseAccepting(int epfd, int listenFd);
    /// Accepts again when the pause is over.
    void ResumeAccepting(int epfd, int listenFd);

    /// Takes a reference on a connection; false if it is not open (any more).
    [[nodiscard]] bool AddFdRef(int fd);
    /// Drops a reference and closes the connection with the last one; false if there was none to drop.
    bool SubFdRef(int fd);

    /// Starts the workers; 0, or -1 after the workers already started were stopped again.
    [[nodiscard]] int ThreadPoolInit();
    void AddThreadTask(int fd);
    /// Waits for the next readable connection; -1 once the pool is stopping and the queue is empty.
    int GetThreadTask();
    static void* ThreadTaskExecute(void* server);
    /// Stops the pool: joins the first `count` workers, each after the request it has begun, and frees the queue.
    void ReleaseThreadTask(int count);

    std::map<std::int32_t, std::int32_t> fdMap;  ///< descriptor to reference count; guarded by fdMapMutex
    std::mutex fdMapMutex;
    epoll_event events[MAX_EVENTS];        ///< main thread only
    std::unique_ptr<pthread_t[]> threads;  ///< main thread only
    pthread_mutex_t taskMutex;             ///< lives, like taskCond, while CreateServer runs the pool
    pthread_cond_t taskCond;               ///< a task was added or exitFlag set; used with taskMutex
    std::unique_ptr<TaskNode> taskHead;    ///< guarded by taskMutex
    TaskNode* taskTail;                    ///< guarded by taskMutex; meaningless while taskHead is null
    std::atomic<bool> exitFlag;            ///< written under taskMutex; workers also read it without
    bool acceptPaused;                     ///< main thread only
    std::uint32_t acceptPausedAt;          ///< milliseconds of the monotonic clock; main thread only
};

}  // namespace TAVO::FileMigrateOrvane
