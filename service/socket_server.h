// FileMigrateSocketServer owns the listening socket, the event loop, the reference counts of the connections and the
// pool of four workers. main has the only instance.
//
// The main thread runs CreateServer and everything that it calls: it accepts connections, queues those that are
// readable and notices hang-ups. Each of the four workers runs ThreadTaskExecute: it takes a connection from the queue,
// reads one request and handles it. Both kinds of threads call AddFdRef and SubFdRef.
//
// A connection has a reference count: 1 from the accept until the hang-up, and 1 for each worker that reads or answers
// a request. Dropping the last reference closes the descriptor.
#pragma once

#include <pthread.h>
#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "file_migrate_orvane.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// A readable connection that waits for a worker.
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

    /// Obtains the listening socket, starts the workers, serves until ten minutes have passed without a socket event or
    /// a request in progress, or until the listening socket is shut down, then stops the workers. If the set-up fails,
    /// it logs that and returns at once.
    void CreateServer();

private:
    static constexpr int WORKER_COUNT = 4;
    static constexpr int MAX_EVENTS = 1024;

    void EpollHandler(int epfd, int listenFd);
    /// Handles the first `count` of `events`. If one runs out of memory, its connection is dropped.
    void HandleEvents(int epfd, int listenFd, int count);
    void HandlerEpollin(int epfd, int listenFd, const epoll_event& event);
    void EpollAccept(int epfd, int listenFd);
    /// Gives a connection its entry and its first reference.
    void AddConnection(UniqueFd accepted);
    [[nodiscard]] bool HasRoomForConnection();
    /// Drops the reference from the accept. It first takes the descriptor out of the epoll set, because a peer that
    /// shuts down and then closes causes two hang-up events, and the second would drop a worker's reference.
    void DropConnection(int epfd, int fd);
    /// Stops accepting for a while, after a failed accept or when there are maxConnections. A client that could not be
    /// accepted (no descriptor, no memory, not permitted) leaves the listening socket readable, so that the loop would
    /// spin.
    void PauseAccepting(int epfd, int listenFd);
    /// Accepts again once the pause is over and there is room for a connection.
    void ResumeAccepting(int epfd, int listenFd);

    /// Takes a reference on a connection; false if the connection is not open any more.
    [[nodiscard]] bool AddFdRef(int fd);
    /// Drops a reference and closes the connection with the last one; false if there was no reference.
    bool SubFdRef(int fd);

    /// Starts the workers. On failure it stops those that it had started.
    /// @return 0 or -1
    [[nodiscard]] int ThreadPoolInit();
    void AddThreadTask(int fd);
    /// Waits for the next readable connection. Returns -1 when the pool is stopping and the queue is empty.
    int GetThreadTask();
    static void* ThreadTaskExecute(void* server);
    /// Serves one task, unless its connection is closed.
    /// @param buffer  the worker's own
    void ServeTask(int fd, FileMigrateRcvMsg& buffer);
    /// Stops the pool: waits until each of the first `count` workers has finished its request, and frees the queue.
    void ReleaseThreadTask(int count);

    std::map<std::int32_t, std::int32_t> fdMap;  ///< descriptor to reference count; guarded by fdMapMutex
    std::mutex fdMapMutex;
    const std::size_t maxConnections;
    epoll_event events[MAX_EVENTS];        ///< main thread only
    std::unique_ptr<pthread_t[]> threads;  ///< main thread only
    pthread_mutex_t taskMutex;             ///< valid, like taskCond, while CreateServer runs
    pthread_cond_t taskCond;               ///< a task was added or exitFlag was set; used with taskMutex
    std::unique_ptr<TaskNode> taskHead;    ///< guarded by taskMutex
    TaskNode* taskTail;                    ///< guarded by taskMutex; invalid while taskHead is null
    std::atomic<int> tasksInProgress;      ///< tasks in the queue and tasks that workers have taken
    std::atomic<bool> exitFlag;            ///< written under taskMutex; workers also read it without the lock
    bool isShutDown;                       ///< the listening socket; main thread only
    bool acceptPaused;                     ///< main thread only
    std::uint32_t acceptPausedAt;          ///< milliseconds of the monotonic clock; main thread only
};

}  // namespace TAVO::FileMigrateOrvane
