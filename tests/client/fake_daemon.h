// A daemon for the client's tests: it listens on a socket file of its own and answers the requests, in the order
// in which they come, with the bytes it was given. Its thread ends with it; clients must be gone by then.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "file_migrate_orvane.h"
#include "scratch_tree.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {

/// The bytes of a whole reply.
inline std::string ReplyBytes(std::int32_t result, std::int32_t errCode, const std::vector<std::string>& texts = {}) {
    const FileMigrateResMsg record{result, errCode, static_cast<std::int32_t>(texts.size())};
    std::string bytes(reinterpret_cast<const char*>(&record), sizeof(record));
    FileMigrateStrPkg package{record.pkgNum, 0, {}};
    for (const std::string& text : texts) {
        ++package.pkgIndex;
        package.data[text.copy(package.data, sizeof(package.data) - 1)] = '\0';
        bytes.append(reinterpret_cast<const char*>(&package), sizeof(package));
    }
    return bytes;
}

struct Answer {
    std::string bytes = ReplyBytes(0, 0);  ///< none: the client waits in vain
    bool thenHangUp = false;
    bool thenStopReading = false;  ///< keeps the connection, so that only a send finds out
};

class FakeDaemon {
public:
    /// @param backlog  0: nobody accepts, so that it stays full
    explicit FakeDaemon(std::vector<Answer> wanted = {}, int backlog = 10) : answers(std::move(wanted)) {
        sockaddr_un address{AF_UNIX, {}};
        socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
        // A failure shows in the client, which finds no daemon.
        static_cast<void>(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
        listen(listener.Get(), backlog);
        if (backlog > 0) {
            thread = std::jthread([this] { Serve(); });
        }
    }
    ~FakeDaemon() { shutdown(listener.Get(), SHUT_RDWR); }

    /// Each as "number|src|dst|user|group|perm|recurseOpt".
    [[nodiscard]] std::vector<std::string> Requests() const {
        const std::lock_guard lock(mutex);
        return requests;
    }

    const ScratchTree directory;
    const std::string socketPath = directory.Path("socket");
    std::atomic<int> ended = 0;  ///< connections, whoever hung up

private:
    void Serve() {
        for (UniqueFd fd; (fd = UniqueFd(accept(listener.Get(), nullptr, nullptr)));) {
            while (AnswerOne(fd.Get())) {
            }
            fd = UniqueFd();
            ++ended;
            ended.notify_all();
        }
    }

    bool AnswerOne(int fd) {
        FileMigrateRcvMsg r;
        // One call, as the daemon does: a request that came in pieces would not be whole.
        if (recv(fd, &r, sizeof(r), 0) != sizeof(r)) {
            return false;
        }
        const std::lock_guard lock(mutex);
        const Answer answer = requests.size() < answers.size() ? answers[requests.size()] : Answer();
        requests.push_back(std::to_string(r.cmd) + "|" + r.src + "|" + r.dst + "|" + r.user + "|" + r.group + "|" +
                           r.perm + "|" + std::to_string(r.recurseOpt));
        kept = UniqueFd(answer.thenStopReading ? dup(fd) : -1);
        shutdown(kept.Get(), SHUT_RD);
        // Two pieces, so that the client has to put a reply together.
        const std::size_t half = answer.bytes.size() / 2;
        send(fd, answer.bytes.data(), half, MSG_NOSIGNAL);
        std::this_thread::yield();
        send(fd, answer.bytes.data() + half, answer.bytes.size() - half, MSG_NOSIGNAL);
        return !answer.thenHangUp;
    }

    const std::vector<Answer> answers;
    mutable std::mutex mutex;
    std::vector<std::string> requests;  ///< guarded by mutex
    UniqueFd kept;                      ///< the thread's
    const UniqueFd listener{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::jthread thread;  ///< last, so that it ends before what it uses
};

}  // namespace TAVO::FileMigrateOrvane::Testing
