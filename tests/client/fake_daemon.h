// A daemon for the client's tests. It listens on a socket file of its own and answers each request with the next of the
// given answers. Its destructor waits for its thread, so clients must have disconnected before.
#pragma once

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "file_migrate_orvane.h"
#include "scratch_tree.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {

/// The bytes of a whole reply.
inline std::string ReplyBytes(std::int32_t result, std::int32_t errCode, const Strings& texts = {}) {
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
    std::string bytes = ReplyBytes(0, 0);  ///< empty: the client gets no answer
    bool thenHangUp = false;
    bool thenStopReading = false;        ///< keeps the connection open, so that the client notices only when it sends
    std::chrono::milliseconds delay{0};  ///< before the answer
    bool isUnread = false;               ///< the request stays in the connection
    std::function<void()> act = [] {};   ///< before the answer
};

class FakeDaemon {
public:
    /// @param backlog  with 0, no connection is accepted, so that the backlog stays full
    explicit FakeDaemon(std::vector<Answer> wanted = {}, int backlog = 10) : answers(std::move(wanted)) {
        listen(listener.Get(), backlog);
        if (backlog > 0) {
            thread = std::jthread([this] { Serve(); });
        }
    }
    ~FakeDaemon() { shutdown(listener.Get(), SHUT_RDWR); }

    /// Makes clients see another user as the one who listens.
    void ListenAs(uid_t user) {
        syscall(SYS_setresuid, -1, user, -1);  // of this thread only
        listen(listener.Get(), 10);
        syscall(SYS_setresuid, -1, 0, -1);
    }

    /// The requests so far, each as "number|src|dst|user|group|perm|recurseOpt".
    [[nodiscard]] Strings Requests() const {
        const std::lock_guard lock(mutex);
        return requests;
    }

    const ScratchTree directory;
    const std::string socketPath = directory.Path("socket");
    std::atomic<int> ended = 0;  ///< connections that have ended, on either side

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
        const std::size_t index = Requests().size();
        const Answer answer = index < answers.size() ? answers[index] : Answer();
        FileMigrateRcvMsg r;
        // A single call, as in the daemon: a request that comes in pieces is not complete.
        if (recv(fd, &r, sizeof(r), answer.isUnread ? MSG_PEEK : 0) != sizeof(r)) {
            return false;
        }
        std::this_thread::sleep_for(answer.delay);
        answer.act();
        const std::lock_guard lock(mutex);
        requests.push_back(std::to_string(r.cmd) + "|" + r.src + "|" + r.dst + "|" + r.user + "|" + r.group + "|" +
                           r.perm + "|" + std::to_string(r.recurseOpt));
        kept = UniqueFd(answer.thenStopReading ? dup(fd) : -1);
        shutdown(kept.Get(), SHUT_RD);
        // Two pieces, so that the client has to join them.
        const std::size_t half = answer.bytes.size() / 2;
        send(fd, answer.bytes.data(), half, MSG_NOSIGNAL);
        std::this_thread::yield();
        send(fd, answer.bytes.data() + half, answer.bytes.size() - half, MSG_NOSIGNAL);
        return !answer.thenHangUp;
    }

    const std::vector<Answer> answers;
    mutable std::mutex mutex;
    Strings requests;  ///< guarded by mutex
    UniqueFd kept;     ///< used by the thread only
    const UniqueFd listener = BoundSocket(socketPath, SOCK_STREAM);
    std::jthread thread;  ///< last, so that it ends before the members that it uses are destroyed
};

}  // namespace TAVO::FileMigrateOrvane::Testing
