// The worker pool of FileMigrateSocketServer.
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "bounded_copy.h"
#include "file_migrate_orvane.h"
#include "handle_cmd.h"
#include "log.h"
#include "socket_server.h"
#include "walk_stack.h"

namespace TAVO::FileMigrateOrvane {
namespace {

class TaskLock {
public:
    explicit TaskLock(pthread_mutex_t& taskMutex) : mutex(taskMutex) { pthread_mutex_lock(&mutex); }
    ~TaskLock() { pthread_mutex_unlock(&mutex); }
    TaskLock(const TaskLock&) = delete;
    TaskLock& operator=(const TaskLock&) = delete;

private:
    pthread_mutex_t& mutex;
};

/// Reads one request and handles it. It never waits, because a task can be stale: another worker may have read the
/// bytes, or the descriptor's number may belong to a new connection.
void ServeOneRequest(int fd, FileMigrateRcvMsg& buffer) {
    const auto received = static_cast<int>(recv(fd, &buffer, sizeof(buffer), MSG_DONTWAIT));
    if (received < 0) {
        // Another worker has read the request, or the client has hung up.
        const bool isStale = errno == EAGAIN || errno == ECONNRESET;
        Log({LogLevel::Error, isStale ? LogKind::Routine : LogKind::Event},
            {"Readline error, errno: %{public}d, eventfd: %{public}d", "ThreadTaskExecute"}, errno, fd);
    } else if (received == 0) {
        LogRoutine(LogLevel::Error, {"Readline null, eventfd: %{public}d", "ThreadTaskExecute"}, fd);
    } else {
        LogRoutine(LogLevel::Debug, {"Handle eventfd: %{public}d", "ThreadTaskExecute"}, fd);
        HandleCmd(fd, reinterpret_cast<const char*>(&buffer), received);
    }
}

}  // namespace

int FileMigrateSocketServer::ThreadPoolInit() {
    threads = std::make_unique<pthread_t[]>(WORKER_COUNT);
    WalkThreadAttributes attributes;
    for (int i = 0; i < WORKER_COUNT; ++i) {
        // The workers keep the name of the process. The kernel writes a task's name into its log lines, and the
        // kernel-log dump looks for that name.
        if (pthread_create(&threads[static_cast<std::size_t>(i)], attributes.Get(), ThreadTaskExecute, this) != 0) {
            ReleaseThreadTask(i);
            threads.reset();
            LogError("Failed to create thread.");
            return -1;
        }
    }
    return 0;
}

void FileMigrateSocketServer::AddThreadTask(int fd) {
    auto node = std::make_unique<TaskNode>(TaskNode{fd, nullptr});
    {
        const TaskLock lock(taskMutex);
        ++tasksInProgress;
        TaskNode* const added = node.get();
        (taskHead == nullptr ? taskHead : taskTail->next) = std::move(node);
        taskTail = added;
        // Wakes all workers although one would do: before glibc 2.41, pthread_cond_signal could fail to wake any.
        pthread_cond_broadcast(&taskCond);
    }
    LogRoutine(LogLevel::Error, "eventfd: %{public}d", fd);
}

int FileMigrateSocketServer::GetThreadTask() {
    const TaskLock lock(taskMutex);
    while (taskHead == nullptr && !exitFlag) {
        pthread_cond_wait(&taskCond, &taskMutex);
    }
    if (taskHead == nullptr) {
        return -1;
    }
    const int fd = taskHead->fd;
    taskHead = std::move(taskHead->next);
    LogRoutine(LogLevel::Error, "GetThreadTask eventfd: %{public}d", fd);
    return fd;
}

void* FileMigrateSocketServer::ThreadTaskExecute(void* server) {
    auto& self = *static_cast<FileMigrateSocketServer*>(server);
    FileMigrateRcvMsg buffer;
    memset_s(&buffer, sizeof(buffer), 0, sizeof(buffer));
    while (!self.exitFlag) {
        const int fd = self.GetThreadTask();
        if (fd >= 0) {
            self.ServeTask(fd, buffer);
            --self.tasksInProgress;
        }
    }
    LogRoutine(LogLevel::Info, "Task thread exit");
    return nullptr;
}

void FileMigrateSocketServer::ServeTask(int fd, FileMigrateRcvMsg& buffer) {
    if (!AddFdRef(fd)) {
        return;
    }
    try {
        ServeOneRequest(fd, buffer);
    } catch (const std::bad_alloc&) {
        LogFailure({"HANDLE_CMD", ENOMEM}, "out of memory, request dropped, eventfd: %{public}d", fd);
    }
    SubFdRef(fd);
}

void FileMigrateSocketServer::ReleaseThreadTask(int count) {
    {
        const TaskLock lock(taskMutex);
        exitFlag = true;
        pthread_cond_broadcast(&taskCond);
    }
    for (int i = 0; i < count; ++i) {
        pthread_join(threads[static_cast<std::size_t>(i)], nullptr);
    }
    LogRoutine(LogLevel::Info, "ReleaseThreadTask wait taskthread exit.");
    // Freed one by one, because destroying the chain at its head recurses once for each node.
    while (taskHead != nullptr) {
        taskHead = std::move(taskHead->next);
    }
}

}  // namespace TAVO::FileMigrateOrvane
