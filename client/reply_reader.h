// Puts a reply together from the bytes that arrive, in any number of pieces. It does not trust the daemon's bytes, so
// it never allocates by an announced count. Internal to the library; used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "file_migrate_client.hpp"
#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateClient {

/// What a command does with the packages of its reply.
struct PackageTaker {
    /// A reply with more packages is malformed.
    std::int32_t most = 0;
    /// A successful reply with fewer packages is malformed.
    std::int32_t least = 0;
    /// Takes the text of a package: `length` bytes and a NUL, which it may change. It is called for a successful reply
    /// only. A failure ends the exchange.
    std::function<Failure(char* text, std::size_t length)> take;
};

class ReplyReader {
public:
    /// Prepares for the reply to another request.
    void Start(PackageTaker packageTaker);

    /// Where the next bytes belong, and how many are missing there; empty once the reply is complete.
    [[nodiscard]] std::span<std::byte> Room();

    /// Takes the bytes that were put into the room. The packages go to the taker as soon as they are complete.
    [[nodiscard]] Failure Take(std::size_t count);

    [[nodiscard]] bool IsComplete() const { return hasResult && index == answer.pkgNum; }

    /// The result and the error number; valid once it is complete.
    [[nodiscard]] Reply Result() const { return {{}, answer.result, answer.errCode}; }

    /// The part of the reply that is missing, for a message.
    [[nodiscard]] std::string Missing() const;

private:
    [[nodiscard]] Failure TakeResult();
    [[nodiscard]] Failure TakePackage();
    [[nodiscard]] std::string NameOfPackage(std::int32_t number) const;

    PackageTaker taker;
    FileMigrateOrvane::FileMigrateResMsg answer{};
    FileMigrateOrvane::FileMigrateStrPkg package{};
    std::size_t filled = 0;  ///< bytes of the record that arrives now
    std::int32_t index = 0;  ///< packages that are complete
    bool hasResult = false;
};

}  // namespace TAVO::FileMigrateClient
