#include "listing.h"

#include <utility>

namespace TAVO::FileMigrateClient {
namespace {

/// The most packages of one listing, 4 GB of names. A reply that announces more is broken.
constexpr std::int32_t MOST_PACKAGES = 1'000'000;

Failure Ended(bool goesOn) {
    return goesOn ? Failure() : Failure{ClientErrc::Cancelled, "the taker of the entries wants no more"};
}

/// Takes "name:1" (a directory) or "name:0". The name itself may contain colons.
Failure TakeEntry(char* text, std::size_t length, const EntryTaker& taker) {
    const std::string_view entry(text, length);
    const bool isDirectory = entry.ends_with(":1");
    if (length < 3 || (!isDirectory && !entry.ends_with(":0"))) {
        return {ClientErrc::MalformedReply, "a directory entry without its type"};
    }
    text[length - 2] = '\0';
    return Ended(taker(entry.substr(0, length - 2), isDirectory));
}

/// Takes the entries of a package, which are separated by "/". No entry is split across two packages.
Failure TakePackage(char* text, std::size_t length, const EntryTaker& taker) {
    for (;;) {
        const std::size_t end = std::string_view(text, length).find('/');
        const bool isLast = end == std::string_view::npos;
        if (Failure failure = TakeEntry(text, isLast ? length : end, taker); failure || isLast) {
            return failure;
        }
        text += end + 1;
        length -= end + 1;
    }
}

}  // namespace

PackageTaker TakeEntries(EntryTaker taker) {
    return {MOST_PACKAGES, /*least=*/0,
            [taker = std::move(taker)](char* text, std::size_t length) { return TakePackage(text, length, taker); }};
}

PackageTaker TakePath(EntryTaker taker) {
    return {1, /*least=*/1, [taker = std::move(taker)](char* text, std::size_t length) -> Failure {
                if (length == 0) {
                    return {ClientErrc::MalformedReply, "a path was announced but not sent"};
                }
                return Ended(taker({text, length}, false));
            }};
}

}  // namespace TAVO::FileMigrateClient
