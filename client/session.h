// The implementation of both interfaces: the options, the connection, and one request at a time that is begun, moved on
// without waiting, and finished. A blocking call is the same with a wait between the steps. It owns the connection.
// Internal to the library; used by one thread at a time.
#pragma once

#include "connection.h"
#include "deadline.h"
#include "file_migrate_client.hpp"
#include "reply_reader.h"
#include "request.h"

namespace TAVO::FileMigrateClient {

class Session {
public:
    explicit Session(ClientOptions clientOptions);

    /// Connects, unless there is a usable connection. Waits.
    [[nodiscard]] Failure Connect();

    /// Carries out a request. Waits. If a signal interrupts it, it cancels the request.
    [[nodiscard]] Reply Run(const Request& request, PackageTaker taker = {});

    /// Accepts a request; the next Process sends it.
    /// @return ClientErrc::Busy while another request is not finished, ClientErrc::InvalidRequest, or no failure
    [[nodiscard]] Failure Begin(const Request& request, PackageTaker taker = {});

    /// Moves the request on as far as possible without waiting. An exception of the taker leaves the request in
    /// progress; only Cancel and Abort are then allowed.
    /// @return whether the request is over, so that Finish does not wait
    bool Process();

    /// Ends the request and gives its reply. Waits if the request is not over. If a signal interrupts the wait, the
    /// failure is std::errc::interrupted, and the request is still in progress.
    [[nodiscard]] Reply Finish();

    /// Drops the request and closes the connection if it was in progress.
    void Cancel();

    /// Makes the request fail, so that Finish gives this failure.
    void Abort(Failure failure);

    /// What to wait for before the next Process, as poll() takes them: the descriptor (-1: only the time counts), the
    /// events and the milliseconds (-1: no limit).
    [[nodiscard]] int Descriptor() const;
    [[nodiscard]] short Events() const;
    [[nodiscard]] int Timeout() const;

    /// Whether a signal handler interrupts a wait.
    void SetInterruptible(bool wanted) { isInterruptible = wanted; }

private:
    enum class Step { None, Connecting, Sending, Receiving, Over };

    [[nodiscard]] bool IsInProgress() const { return step != Step::None && step != Step::Over; }
    void StartConnecting();
    void StartSending();
    [[nodiscard]] Failure Advance();
    [[nodiscard]] Failure Open();
    [[nodiscard]] Failure Send();
    [[nodiscard]] Failure Receive();
    [[nodiscard]] std::string WhatItDoes() const;
    [[nodiscard]] Failure Wait() const;

    const ClientOptions options;
    bool isInterruptible = false;
    Connection connection;
    Step step = Step::None;
    Deadline deadline{std::chrono::milliseconds(0)};  ///< for connecting, then for the reply
    bool wasRefused = false;                          ///< the backlog was full at the last try
    bool sendsRequest = false;                        ///< false for Connect
    bool isFresh = false;                             ///< the connection was made for this request
    FileMigrateRcvMsg record{};
    ReplyReader reader;
    Reply reply;  ///< valid once the step is Over
};

}  // namespace TAVO::FileMigrateClient
