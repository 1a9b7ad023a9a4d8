#include "file_migrate_client.hpp"

#include <utility>

#include "listing.h"
#include "session.h"

namespace TAVO::FileMigrateClient {
namespace {

std::int32_t Option(Recursion recursion) {
    return static_cast<std::int32_t>(recursion);
}

}  // namespace

Client::Client(ClientOptions options) : session(std::make_unique<Session>(std::move(options))) {}
Client::Client(Client&&) noexcept = default;
Client& Client::operator=(Client&&) noexcept = default;
Client::~Client() = default;

void Client::SetInterruptible(bool isWanted) {
    session->SetInterruptible(isWanted);
}

Failure Client::Connect() {
    return session->Connect();
}

YesNo Client::IsExist(std::string_view path) {
    return {session->Run({.cmd = Command::IsExist, .src = path})};
}

YesNo Client::IsDir(std::string_view path) {
    return {session->Run({.cmd = Command::IsDir, .src = path})};
}

Outcome Client::ListDir(std::string_view path, EntryTaker taker) {
    return {session->Run({.cmd = Command::ListDir, .src = path}, TakeEntries(std::move(taker)))};
}

Listing Client::ListDir(std::string_view path) {
    Listing listing;
    const auto keep = [&listing](std::string_view name, bool isDirectory) {
        listing.entries.push_back({std::string(name), isDirectory});
        return true;
    };
    static_cast<Reply&>(listing) = ListDir(path, keep);
    if (!listing.Succeeded()) {
        listing.entries.clear();
    }
    return listing;
}

ExistedPathReply Client::ExistedPath(std::string_view path) {
    ExistedPathReply reply;
    const auto keep = [&reply](std::string_view existing, bool /*isDirectory*/) {
        reply.path = existing;
        return true;
    };
    static_cast<Reply&>(reply) = session->Run({.cmd = Command::ExistedPath, .src = path}, TakePath(keep));
    return reply;
}

Size Client::UsedSpace(std::string_view path) {
    Size size{session->Run({.cmd = Command::UsedSpace, .src = path})};
    size.kilobytes = size.result;
    // The daemon always gives a figure. Only the error number shows that parts of the tree are missing from it.
    size.isWhole = !size.failure && size.result >= 0 && size.errCode == 0;
    return size;
}

Size Client::MaxSize(std::string_view path) {
    Size size{session->Run({.cmd = Command::MaxSize, .src = path})};
    size.kilobytes = size.result;
    size.isWhole = !size.failure && size.result >= 0;
    return size;
}

Outcome Client::MkDir(std::string_view path, Recursion recursion) {
    return {session->Run({.cmd = Command::MkDir, .src = path, .recurseOpt = Option(recursion)})};
}

Outcome Client::PrepareDir(std::string_view path, std::string_view user, std::string_view group, std::string_view perm,
                           Recursion recursion) {
    return {session->Run({.cmd = Command::PrepareDir,
                          .src = path,
                          .user = user,
                          .group = group,
                          .perm = perm,
                          .recurseOpt = Option(recursion)})};
}

Outcome Client::MoveSub(std::string_view src, std::string_view dst) {
    return {session->Run({.cmd = Command::MoveSub, .src = src, .dst = dst})};
}

Outcome Client::MoveAll(std::string_view src, std::string_view dst) {
    return {session->Run({.cmd = Command::MoveAll, .src = src, .dst = dst})};
}

Outcome Client::CopySub(std::string_view src, std::string_view dst) {
    return {session->Run({.cmd = Command::CopySub, .src = src, .dst = dst})};
}

Outcome Client::CopyAll(std::string_view src, std::string_view dst) {
    return {session->Run({.cmd = Command::CopyAll, .src = src, .dst = dst})};
}

Outcome Client::CopyComb(std::string_view src, std::string_view dst, std::string_view user, std::string_view group,
                         std::string_view perm) {
    return {
        session->Run({.cmd = Command::CopyComb, .src = src, .dst = dst, .user = user, .group = group, .perm = perm})};
}

Outcome Client::Remove(std::string_view path) {
    return {session->Run({.cmd = Command::Remove, .src = path})};
}

Outcome Client::TryRemove(std::string_view path) {
    return {session->Run({.cmd = Command::TryRemove, .src = path})};
}

Outcome Client::Restorecon(std::string_view path, Recursion recursion) {
    return {session->Run({.cmd = Command::Restorecon, .src = path, .recurseOpt = Option(recursion)})};
}

Outcome Client::RestoreconFromParent(std::string_view path) {
    return {session->Run({.cmd = Command::RestoreconFromParent, .src = path})};
}

Outcome Client::ChOwn(std::string_view path, std::string_view user, std::string_view group, Recursion recursion) {
    return {session->Run(
        {.cmd = Command::ChOwn, .src = path, .user = user, .group = group, .recurseOpt = Option(recursion)})};
}

Outcome Client::ChMod(std::string_view path, std::string_view perm, Recursion recursion) {
    return {session->Run({.cmd = Command::ChMod, .src = path, .perm = perm, .recurseOpt = Option(recursion)})};
}

}  // namespace TAVO::FileMigrateClient
