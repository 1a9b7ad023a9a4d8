#include "file_migrate_client.h"

#include <cstring>
#include <utility>

#include "request.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Packages of one listing, 4 GB of names: more is not a directory but a broken reply.
constexpr std::int32_t MOST_PACKAGES = 1'000'000;

std::int32_t Option(Recursion recursion) {
    return static_cast<std::int32_t>(recursion);
}

/// One exchange on a connection of its own. The daemon's bytes are not trusted: no count sizes anything beforehand.
class Exchanger {
public:
    Exchanger(Connection& usedConnection, const Deadline& usedDeadline)
        : connection(usedConnection), deadline(usedDeadline) {}

    Failure Run(const FileMigrateRcvMsg& record, std::int32_t mostPackages, Reply& reply,
                std::vector<std::string>& packages) {
        if (const std::error_code error = connection.Send(&record, sizeof(record), deadline)) {
            return {error, "sending the request"};
        }
        FileMigrateResMsg answer{};
        if (const std::error_code error = connection.Receive(&answer, sizeof(answer), deadline)) {
            return {error, "the request was sent; waiting for its result"};
        }
        if (answer.pkgNum < 0 || answer.pkgNum > mostPackages) {
            return {ClientErrc::MalformedReply, std::to_string(answer.pkgNum) + " packages announced"};
        }
        reply.result = answer.result;
        reply.errCode = answer.errCode;
        for (std::int32_t index = 1; index <= answer.pkgNum; ++index) {
            if (Failure failure = ReceivePackage(index, answer.pkgNum, packages)) {
                return failure;
            }
        }
        return {};
    }

private:
    Failure ReceivePackage(std::int32_t index, std::int32_t count, std::vector<std::string>& packages) {
        const std::string name = "package " + std::to_string(index) + " of " + std::to_string(count);
        FileMigrateStrPkg package{};
        if (const std::error_code error = connection.Receive(&package, sizeof(package), deadline)) {
            return {error, "waiting for " + name};
        }
        if (package.pkgNum != count || package.pkgIndex != index) {
            return {ClientErrc::MalformedReply,
                    name + " is headed " + std::to_string(package.pkgIndex) + " of " + std::to_string(package.pkgNum)};
        }
        const std::size_t length = strnlen(package.data, sizeof(package.data));
        if (length == sizeof(package.data)) {
            return {ClientErrc::MalformedReply, name + " has no end"};
        }
        packages.emplace_back(package.data, length);
        return {};
    }

    Connection& connection;
    const Deadline& deadline;
};

/// Takes "name:1" (a directory) or "name:0" apart; the name itself may hold colons.
bool ParseEntry(std::string_view text, std::vector<Entry>& entries) {
    const bool isDirectory = text.ends_with(":1");
    if (text.size() < 3 || (!isDirectory && !text.ends_with(":0"))) {
        return false;
    }
    entries.push_back({std::string(text.substr(0, text.size() - 2)), isDirectory});
    return true;
}

/// Strings are joined by "/" inside a package and never split across two.
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

Failure Client::Connect() {
    // The daemon ends after ten idle minutes; a connection that it hung up meanwhile is simply made again.
    if (connection.IsReady()) {
        return {};
    }
    connection = Connection();
    if (const std::error_code error = connection.Open(options.socketPath, Deadline(options.connectLimit))) {
        return {error, "connecting to " + options.socketPath};
    }
    return {};
}

Reply Client::Exchange(const Request& request, std::int32_t mostPackages, std::vector<std::string>& packages) {
    Reply reply;
    FileMigrateRcvMsg record;
    reply.failure = EncodeRequest(request, record);
    if (!reply.failure) {
        reply.failure = Connect();
    }
    if (reply.failure) {
        return reply;
    }
    // Given back after a whole reply only: any other way out, an exception too, closes it.
    Connection current = std::move(connection);
    const Deadline deadline(options.replyLimit);
    reply.failure = Exchanger(current, deadline).Run(record, mostPackages, reply, packages);
    if (!reply.failure) {
        connection = std::move(current);
    }
    return reply;
}

Reply Client::Exchange(const Request& request) {
    std::vector<std::string> packages;
    return Exchange(request, 0, packages);
}

Failure Client::Malformed(std::string detail) {
    connection = Connection();
    return {ClientErrc::MalformedReply, std::move(detail)};
}

YesNo Client::IsExist(std::string_view path) {
    return {Exchange({.cmd = Command::IsExist, .src = path})};
}

YesNo Client::IsDir(std::string_view path) {
    return {Exchange({.cmd = Command::IsDir, .src = path})};
}

Listing Client::ListDir(std::string_view path) {
    std::vector<std::string> packages;
    Listing listing{Exchange({.cmd = Command::ListDir, .src = path}, MOST_PACKAGES, packages), {}};
    if (!listing.Succeeded()) {
        return listing;
    }
    for (const std::string& package : packages) {
        if (!ParsePackage(package, listing.entries)) {
            listing.failure = Malformed("a directory entry without its type");
            listing.entries.clear();
            break;
        }
    }
    return listing;
}

ExistedPathReply Client::ExistedPath(std::string_view path) {
    std::vector<std::string> packages;
    ExistedPathReply reply{Exchange({.cmd = Command::ExistedPath, .src = path}, 1, packages), {}};
    if (!reply.Succeeded()) {
        return reply;
    }
    if (packages.empty() || packages.front().empty()) {
        reply.failure = Malformed("a path was promised and none came");
    } else {
        reply.path = std::move(packages.front());
    }
    return reply;
}

Size Client::UsedSpace(std::string_view path) {
    Size size{Exchange({.cmd = Command::UsedSpace, .src = path})};
    size.kilobytes = size.result;
    // The figure is given whatever happens; only the error number tells that something was left out.
    size.isWhole = !size.failure && size.result >= 0 && size.errCode == 0;
    return size;
}

Size Client::MaxSize(std::string_view path) {
    Size size{Exchange({.cmd = Command::MaxSize, .src = path})};
    size.kilobytes = size.result;
    size.isWhole = !size.failure && size.result >= 0;
    return size;
}

Outcome Client::MkDir(std::string_view path, Recursion recursion) {
    return {Exchange({.cmd = Command::MkDir, .src = path, .recurseOpt = Option(recursion)})};
}

Outcome Client::PrepareDir(std::string_view path, std::string_view user, std::string_view group, std::string_view perm,
                           Recursion recursion) {
    return {Exchange({.cmd = Command::PrepareDir,
                      .src = path,
                      .user = user,
                      .group = group,
                      .perm = perm,
                      .recurseOpt = Option(recursion)})};
}

Outcome Client::MoveSub(std::string_view src, std::string_view dst) {
    return {Exchange({.cmd = Command::MoveSub, .src = src, .dst = dst})};
}

Outcome Client::MoveAll(std::string_view src, std::string_view dst) {
    return {Exchange({.cmd = Command::MoveAll, .src = src, .dst = dst})};
}

Outcome Client::CopySub(std::string_view src, std::string_view dst) {
    return {Exchange({.cmd = Command::CopySub, .src = src, .dst = dst})};
}

Outcome Client::CopyAll(std::string_view src, std::string_view dst) {
    return {Exchange({.cmd = Command::CopyAll, .src = src, .dst = dst})};
}

Outcome Client::CopyComb(std::string_view src, std::string_view dst, std::string_view user, std::string_view group,
                         std::string_view perm) {
    return {Exchange({.cmd = Command::CopyComb, .src = src, .dst = dst, .user = user, .group = group, .perm = perm})};
}

Outcome Client::Remove(std::string_view path) {
    return {Exchange({.cmd = Command::Remove, .src = path})};
}

Outcome Client::TryRemove(std::string_view path) {
    return {Exchange({.cmd = Command::TryRemove, .src = path})};
}

Outcome Client::Restorecon(std::string_view path, Recursion recursion) {
    return {Exchange({.cmd = Command::Restorecon, .src = path, .recurseOpt = Option(recursion)})};
}

Outcome Client::RestoreconFromParent(std::string_view path) {
    return {Exchange({.cmd = Command::RestoreconFromParent, .src = path})};
}

Outcome Client::ChOwn(std::string_view path, std::string_view user, std::string_view group, Recursion recursion) {
    return {
        Exchange({.cmd = Command::ChOwn, .src = path, .user = user, .group = group, .recurseOpt = Option(recursion)})};
}

Outcome Client::ChMod(std::string_view path, std::string_view perm, Recursion recursion) {
    return {Exchange({.cmd = Command::ChMod, .src = path, .perm = perm, .recurseOpt = Option(recursion)})};
}

}  // namespace TAVO::FileMigrateOrvane
