#include "session.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace TAVO::FileMigrateClient {
namespace {

/// How long to wait for room in the listener's backlog before connecting again, in milliseconds. The kernel reports no
/// event for it.
constexpr int RETRY_INTERVAL = 10;

}  // namespace

Session::Session(ClientOptions clientOptions) : options(std::move(clientOptions)) {}

Failure Session::Connect() {
    if (step != Step::None) {
        return {ClientErrc::Busy, {}};
    }
    if (connection.IsReady()) {
        return {};
    }
    sendsRequest = false;
    StartConnecting();
    Failure failure = Finish().failure;
    Cancel();
    return failure;
}

Reply Session::Run(const Request& request, PackageTaker taker) {
    Reply result;
    result.failure = Begin(request, std::move(taker));
    if (result.failure) {
        return result;
    }
    try {
        result = Finish();
    } catch (...) {
        Cancel();
        throw;
    }
    Cancel();  // after an interruption the request is still in progress
    return result;
}

Failure Session::Begin(const Request& request, PackageTaker taker) {
    if (step != Step::None) {
        return {ClientErrc::Busy, {}};
    }
    if (Failure failure = EncodeRequest(request, record)) {
        return failure;
    }
    sendsRequest = true;
    reader.Start(std::move(taker));
    if (connection.IsReady()) {
        isFresh = false;
        StartSending();
    } else {
        StartConnecting();
    }
    return {};
}

void Session::StartConnecting() {
    connection.Close();
    step = Step::Connecting;
    wasRefused = false;
    deadline = Deadline(options.connectLimit);
}

void Session::StartSending() {
    step = Step::Sending;
    deadline = Deadline(options.replyLimit);
}

bool Session::Process() {
    while (IsInProgress()) {
        Failure failure = Advance();
        if (failure.code == std::errc::operation_would_block) {
            if (deadline.Remaining() != 0) {
                return false;
            }
            failure.code = ClientErrc::TimedOut;
        }
        if (failure && failure.code != std::errc::interrupted) {
            if (failure.detail.empty()) {
                failure.detail = WhatItDoes();
            }
            Abort(std::move(failure));
        }
    }
    return true;
}

Failure Session::Advance() {
    switch (step) {
        case Step::Connecting:
            return Open();
        case Step::Sending:
            return Send();
        default:
            return Receive();
    }
}

Failure Session::Open() {
    if (const std::error_code error = connection.Open(options.socketPath, options.daemonUser)) {
        wasRefused = true;
        return {error, {}};
    }
    isFresh = true;
    if (sendsRequest) {
        StartSending();
    } else {
        reply = {};
        step = Step::Over;
    }
    return {};
}

Failure Session::Send() {
    const std::error_code error = connection.Send(&record, sizeof(record));
    // The daemon exits after ten idle minutes, possibly between the check of the connection and the send. A send that
    // fails because the connection is closed has sent nothing, so the request may be sent on a new connection.
    if (error == ClientErrc::ConnectionClosed && !isFresh) {
        StartConnecting();
        return {};
    }
    if (!error) {
        step = Step::Receiving;
    }
    return {error, {}};
}

Failure Session::Receive() {
    std::size_t count = 0;
    const std::span<std::byte> room = reader.Room();
    if (const std::error_code error = connection.Receive(room.data(), room.size(), count)) {
        return {error, {}};
    }
    if (Failure failure = reader.Take(count)) {
        return failure;
    }
    if (reader.IsComplete()) {
        reply = reader.Result();
        step = Step::Over;
    }
    return {};
}

std::string Session::WhatItDoes() const {
    switch (step) {
        case Step::Connecting:
            return "connecting to " + options.socketPath;
        case Step::Sending:
            return "sending the request";
        default:
            return reader.Missing();
    }
}

Reply Session::Finish() {
    while (!Process()) {
        if (Failure failure = Wait()) {
            Reply interrupted;
            interrupted.failure = std::move(failure);
            return interrupted;
        }
    }
    Reply result = std::exchange(reply, {});
    if (step == Step::None) {
        result.failure = {std::make_error_code(std::errc::invalid_argument), "no request was begun"};
    }
    step = Step::None;
    return result;
}

Failure Session::Wait() const {
    pollfd entry{Descriptor(), Events(), 0};
    if (poll(&entry, 1, Timeout()) < 0 && (errno != EINTR || isInterruptible)) {
        return {std::error_code(errno, std::system_category()), WhatItDoes()};
    }
    return {};
}

void Session::Cancel() {
    // The late reply must not be taken for the reply to the next request.
    if (IsInProgress()) {
        connection.Close();
    }
    step = Step::None;
}

void Session::Abort(Failure failure) {
    connection.Close();
    reply = {};
    reply.failure = std::move(failure);
    step = Step::Over;
}

int Session::Descriptor() const {
    return connection.Descriptor();
}

short Session::Events() const {
    switch (step) {
        case Step::Sending:
            return POLLOUT;
        case Step::Receiving:
            return POLLIN;
        default:
            return 0;
    }
}

int Session::Timeout() const {
    switch (step) {
        case Step::None:
            return -1;
        case Step::Connecting: {
            const int wait = wasRefused ? RETRY_INTERVAL : 0;
            const int left = deadline.Remaining();
            return left < 0 ? wait : std::min(left, wait);
        }
        case Step::Over:
            return 0;
        default:
            return deadline.Remaining();
    }
}

}  // namespace TAVO::FileMigrateClient
