#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "client_growth.h"

namespace TAVO::FileMigrateClient {
namespace {

std::optional<dev_t> DeviceOf(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 ? std::optional(st.st_dev) : std::nullopt;
}

/// Whether source and destination are on one file system. Only a hint, to avoid measuring a tree that is renamed.
bool IsRename(const Transfer& transfer, const Place& source, const Place& destination) {
    const std::optional<dev_t> from = DeviceOf(source.path);
    return transfer.isMove && from && from == DeviceOf(transfer.isOfChildren ? destination.path : destination.parent);
}

std::optional<std::int64_t> Kilobytes(Client& client, const std::string& path) {
    const Size size = client.UsedSpace(path);
    return !size.failure && size.isWhole ? std::optional<std::int64_t>(size.kilobytes) : std::nullopt;
}

}  // namespace

std::optional<Growth> Growth::Measure(const ClientOptions& options, const Transfer& transfer) {
    if (!transfer.source.starts_with('/') || !transfer.destination.starts_with('/')) {
        return std::nullopt;
    }
    Client client(options);
    const Place source = Look(client, transfer.source);
    Place destination = source.Exists() ? Look(client, transfer.destination) : Place();
    const bool canGrow = destination.Exists() || destination.kind == Place::Kind::Absent;
    // If one contains the other, measuring the destination would meet objects that are being moved.
    const bool overlap = IsWithin(source, destination) || IsWithin(destination, source);
    if (!canGrow || overlap || IsRename(transfer, source, destination)) {
        return std::nullopt;
    }
    const std::optional<std::int64_t> total = Kilobytes(client, source.path);
    // A file at the destination is truncated first; a directory keeps its contents.
    const bool isAddedTo = destination.kind == Place::Kind::Directory;
    const std::optional<std::int64_t> before =
        total && isAddedTo ? Kilobytes(client, destination.path) : std::optional<std::int64_t>(0);
    if (!total || !before) {
        return std::nullopt;
    }
    return Growth(std::move(client), std::move(destination), *total, *before);
}

std::optional<std::int64_t> Growth::Now() {
    if (destination.kind == Place::Kind::Absent) {
        const std::string name = destination.path.substr(destination.path.rfind('/') + 1);
        destination.kind = LookIn(client, destination.parent, name);
    }
    if (destination.kind == Place::Kind::Absent) {
        return 0;
    }
    const std::optional<std::int64_t> now =
        destination.Exists() ? Kilobytes(client, destination.path) : std::optional<std::int64_t>();
    return now ? std::optional(std::clamp<std::int64_t>(*now - start, 0, total)) : std::nullopt;
}

}  // namespace TAVO::FileMigrateClient
