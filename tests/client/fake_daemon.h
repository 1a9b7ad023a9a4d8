// A daemon for the client's tests: it listens on a socket file of its own and answers the requests, in the order
// in which they come, with the bytes it was given. Its thread ends with it; clients must be gone by then.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateOrvane {

/// The bytes of a whole reply.
inline std::string ReplyBytes(std::int32_t result, std::int32_t errCode, const std::vector<std::string>& texts = {}) {
    const auto count = static_cast<std::int32_t>(texts.size());
    const FileMigrateResMsg record{result, errCode, count};
    std::string bytes(reinterpret_cast<const char*>(&record), sizeof(record));
    for (std::int32_t index = 1; index <= count; ++index) {
        FileMigrateStrPkg package{count, index, {}};
        std::strncpy(package.data, texts[static_cast<std::size_t>(index - 1)].c_str(), sizeof(package.data) - 1);
        bytes.append(reinterpret_cast<const char*>(&package), sizeof(package));
    }
    return bytes;
}

struct TemporaryDirectory {
    TemporaryDirectory() {
        if (mkdtemp(path.data()) == nullptr) {
            std::abort();
        }
    }
    ~TemporaryDirectory() { rmdir(path.c_str()); }
    std::string path = "/tmp/file_migrate_client.XXXXXX";
};

struct Answer {
    std::string bytes;  ///< none: the client waits in vain
    bool thenHangUp = false;
};

class FakeDaemon {
public:
    explicit FakeDaemon(std::vector<Answer> wanted = {}, int backlog = 10) : answers(std::move(wanted)) {
        sockaddr_un address{AF_UNIX, {}};
        std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
        listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(listener, backlog) != 0) {
            std::abort();
        }
        if (backlog > 0) {  // else nobody accepts, and the backlog stays full
            thread = std::thread([this] { Serve(); });
        }
    }
    ~FakeDaemon() {
        shutdown(listener, SHUT_RDWR);
        if (thread.joinable()) {
            thread.join();
        }
        close(listener);
        unlink(socketPath.c_str());
    }

    std::vector<FileMigrateRcvMsg> Requests() const {
        const std::lock_guard lock(mutex);
        return requests;
    }
    void WaitForHangUp() const { hungUp.wait(false); }

    const TemporaryDirectory directory;
    const std::string socketPath = directory.path + "/socket";
    std::atomic<int> connections = 0;

private:
    void Serve() {
        for (int fd = accept(listener, nullptr, nullptr); fd >= 0; fd = accept(listener, nullptr, nullptr)) {
            ++connections;
            while (AnswerOne(fd)) {
            }
            close(fd);
            hungUp = true;
            hungUp.notify_all();
        }
    }

    bool AnswerOne(int fd) {
        FileMigrateRcvMsg request;
        // One call, as the daemon does: a request that came in pieces would not be whole.
        if (recv(fd, &request, sizeof(request), 0) != sizeof(request)) {
            return false;
        }
        std::size_t number = 0;
        {
            const std::lock_guard lock(mutex);
            number = requests.size();
            requests.push_back(request);
        }
        const Answer answer = number < answers.size() ? answers[number] : Answer{ReplyBytes(0, 0)};
        // Two pieces, so that the client has to put a reply together.
        const std::size_t half = answer.bytes.size() / 2;
        send(fd, answer.bytes.data(), half, MSG_NOSIGNAL);
        std::this_thread::yield();
        send(fd, answer.bytes.data() + half, answer.bytes.size() - half, MSG_NOSIGNAL);
        return !answer.thenHangUp;
    }

    const std::vector<Answer> answers;
    mutable std::mutex mutex;
    std::vector<FileMigrateRcvMsg> requests;  ///< guarded by mutex
    std::atomic<bool> hungUp = false;
    int listener = -1;
    std::thread thread;
};

}  // namespace TAVO::FileMigrateOrvane
