#include "reply_reader.h"

#include <cstring>
#include <utility>

namespace TAVO::FileMigrateClient {

void ReplyReader::Start(PackageTaker packageTaker) {
    taker = std::move(packageTaker);
    filled = 0;
    index = 0;
    hasResult = false;
}

std::span<std::byte> ReplyReader::Room() {
    if (IsComplete()) {
        return {};
    }
    const std::span<std::byte> record =
        hasResult ? std::as_writable_bytes(std::span(&package, 1)) : std::as_writable_bytes(std::span(&answer, 1));
    return record.subspan(filled);
}

Failure ReplyReader::Take(std::size_t count) {
    const std::size_t missing = Room().size() - count;
    filled += count;
    if (missing > 0) {
        return {};
    }
    filled = 0;
    return hasResult ? TakePackage() : TakeResult();
}

Failure ReplyReader::TakeResult() {
    if (answer.pkgNum < (answer.result == 0 ? taker.least : 0) || answer.pkgNum > taker.most) {
        return {ClientErrc::MalformedReply, std::to_string(answer.pkgNum) + " packages announced"};
    }
    hasResult = true;
    return {};
}

Failure ReplyReader::TakePackage() {
    ++index;
    if (package.pkgNum != answer.pkgNum || package.pkgIndex != index) {
        return {ClientErrc::MalformedReply, NameOfPackage(index) + " is headed " + std::to_string(package.pkgIndex) +
                                                " of " + std::to_string(package.pkgNum)};
    }
    const std::size_t length = strnlen(package.data, sizeof(package.data));
    if (length == sizeof(package.data)) {
        return {ClientErrc::MalformedReply, NameOfPackage(index) + " has no end"};
    }
    return answer.result == 0 ? taker.take(package.data, length) : Failure();
}

std::string ReplyReader::Missing() const {
    return hasResult ? "waiting for " + NameOfPackage(index + 1) : "the request was sent; waiting for its result";
}

std::string ReplyReader::NameOfPackage(std::int32_t number) const {
    return "package " + std::to_string(number) + " of " + std::to_string(answer.pkgNum);
}

}  // namespace TAVO::FileMigrateClient
