#include "file_migrate_client.hpp"

#include <utility>

#include "session.h"

namespace TAVO::FileMigrateClient {
namespace {

/// The most packages of one listing, 4 GB of names. A reply that announces more is broken.
constexpr std::int32_t MOST_PACKAGES = 1'000'000;

std::int32_t Option(Recursion recursion) {
    return static_cast<std::int32_t>(recursion);
}

/// Parses "name:1" (a directory) or "name:0". The name itself may contain colons.
bool ParseEntry(std::string_view text, std::vector<Entry>& entries) {
    const bool isDirectory = text.ends_with(":1");
    if (text.size() < 3 || (!isDirectory && !text.ends_with(":0"))) {
        return false;
    }
    entries.push_back({std::string(text.substr(0, text.size() - 2)), isDirectory});
    return true;
}

/// Parses the entries of a package, which are separated by "/". No entry is split across two packages.
bool ParsePackage(std::string_view package, std::vector<Entry>& entries) {
    for (;;) {
        const std::size_t end = package.find('/');
        if (!ParseEntry(package.substr(0, end), entries)) {
            return false;
        }
        if (end == std::string_view::npos) {
            return true;
        }
        package.remove_prefix(end + 1);
    }
}

}  // namespace

Client::Client(ClientOptions options) : session(std::make_unique<Session>(std::move(options))) {}
Client::Client(Client&&) noexcept = default;
Client& Client::operator=(Client&&) noexcept = default;
Client::~Client() = default;

Failure Client::Connect() {
    return session->Connect();
}

YesNo Client::IsExist(std::string_view path) {
    return {session->Exchange({.cmd = Command::IsExist, .src = path})};
}

YesNo Client::IsDir(std::string_view path) {
    return {session->Exchange({.cmd = Command::IsDir, .src = path})};
}

Listing Client::ListDir(std::string_view path) {
    std::vector<std::string> packages;
    Listing listing{session->Exchange({.cmd = Command::ListDir, .src = path}, MOST_PACKAGES, packages), {}};
    if (!listing.Succeeded()) {
        return listing;
    }
    for (const std::string& package : packages) {
        if (!ParsePackage(package, listing.entries)) {
            listing.failure = session->Malformed("a directory entry without its type");
            listing.entries.clear();
            break;
        }
    }
    return listing;
}

ExistedPathReply Client::ExistedPath(std::string_view path) {
    std::vector<std::string> packages;
    ExistedPathReply reply{session->Exchange({.cmd = Command::ExistedPath, .src = path}, 1, packages), {}};
    if (!reply.Succeeded()) {
        return reply;
    }
    if (packages.empty() || packages.front().empty()) {
        reply.failure = session->Malformed("a path was announced but not sent");
    } else {
        reply.path = std::move(packages.front());
    }
    return reply;
}

Size Client::UsedSpace(std::string_view path) {
    Size size{session->Exchange({.cmd = Command::UsedSpace, .src = path})};
    size.kilobytes = size.result;
    // The daemon always gives a figure. Only the error number shows that parts of the tree are missing from it.
    size.isWhole = !size.failure && size.result >= 0 && size.errCode == 0;
    return size;
}

Size Client::MaxSize(std::string_view path) {
    Size size{session->Exchange({.cmd = Command::MaxSize, .src = path})};
    size.kilobytes = size.result;
    size.isWhole = !size.failure && size.result >= 0;
    return size;
}

Outcome Client::MkDir(std::string_view path, Recursion recursion) {
    return {session->Exchange({.cmd = Command::MkDir, .src = path, .recurseOpt = Option(recursion)})};
}

Outcome Client::PrepareDir(std::string_view path, std::string_view user, std::string_view group, std::string_view perm,
                           Recursion recursion) {
    return {session->Exchange({.cmd = Command::PrepareDir,
                               .src = path,
                               .user = user,
                               .group = group,
                               .perm = perm,
                               .recurseOpt = Option(recursion)})};
}

Outcome Client::MoveSub(std::string_view src, std::string_view dst) {
    return {session->Exchange({.cmd = Command::MoveSub, .src = src, .dst = dst})};
}

Outcome Client::MoveAll(std::string_view src, std::string_view dst) {
    return {session->Exchange({.cmd = Command::MoveAll, .src = src, .dst = dst})};
}

Outcome Client::CopySub(std::string_view src, std::string_view dst) {
    return {session->Exchange({.cmd = Command::CopySub, .src = src, .dst = dst})};
}

Outcome Client::CopyAll(std::string_view src, std::string_view dst) {
    return {session->Exchange({.cmd = Command::CopyAll, .src = src, .dst = dst})};
}

Outcome Client::CopyComb(std::string_view src, std::string_view dst, std::string_view user, std::string_view group,
                         std::string_view perm) {
    return {session->Exchange(
        {.cmd = Command::CopyComb, .src = src, .dst = dst, .user = user, .group = group, .perm = perm})};
}

Outcome Client::Remove(std::string_view path) {
    return {session->Exchange({.cmd = Command::Remove, .src = path})};
}

Outcome Client::TryRemove(std::string_view path) {
    return {session->Exchange({.cmd = Command::TryRemove, .src = path})};
}

Outcome Client::Restorecon(std::string_view path, Recursion recursion) {
    return {session->Exchange({.cmd = Command::Restorecon, .src = path, .recurseOpt = Option(recursion)})};
}

Outcome Client::RestoreconFromParent(std::string_view path) {
    return {session->Exchange({.cmd = Command::RestoreconFromParent, .src = path})};
}

Outcome Client::ChOwn(std::string_view path, std::string_view user, std::string_view group, Recursion recursion) {
    return {session->Exchange(
        {.cmd = Command::ChOwn, .src = path, .user = user, .group = group, .recurseOpt = Option(recursion)})};
}

Outcome Client::ChMod(std::string_view path, std::string_view perm, Recursion recursion) {
    return {session->Exchange({.cmd = Command::ChMod, .src = path, .perm = perm, .recurseOpt = Option(recursion)})};
}

}  // namespace TAVO::FileMigrateClient
