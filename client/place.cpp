#include <algorithm>
#include <string_view>
#include <vector>

#include "client_place.h"

namespace TAVO::FileMigrateClient {
namespace {

std::vector<std::string> Components(std::string_view path) {
    std::vector<std::string> components;
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (!component.empty() && component != ".") {
            components.emplace_back(component);
        }
        path.remove_prefix(std::min(path.size(), component.size() + 1));
    }
    return components;
}

/// Whether the path ends in a way that requires a directory.
bool EndsAsDirectory(std::string_view path) {
    return path.ends_with('/') || path.ends_with("/.");
}

void Step(Client& client, Place& place, const std::string& name) {
    switch (place.kind) {
        case Place::Kind::Directory:
            place.kind = name == ".." ? Place::Kind::Unknown : LookIn(client, place.path, name);
            break;
        case Place::Kind::Absent:
            place.kind = Place::Kind::NoParent;
            break;
        case Place::Kind::Other:
            place.kind = Place::Kind::Unknown;
            break;
        case Place::Kind::NoParent:
        case Place::Kind::Unknown:
            break;
    }
    place.parent = place.path;
    place.path += (place.path.ends_with('/') ? "" : "/") + name;
}

}  // namespace

Place::Kind LookIn(Client& client, const std::string& directory, const std::string& name) {
    const Listing listing = client.ListDir(directory);
    if (!listing.Succeeded()) {
        return Place::Kind::Unknown;
    }
    const auto found = std::ranges::find(listing.entries, name, &Entry::name);
    if (found == listing.entries.end()) {
        return Place::Kind::Absent;
    }
    return found->isDirectory ? Place::Kind::Directory : Place::Kind::Other;
}

Place Look(Client& client, const std::string& path) {
    Place place{Place::Kind::Directory, "/", "/"};
    for (const std::string& name : Components(path)) {
        Step(client, place, name);
    }
    if (place.kind == Place::Kind::Other && EndsAsDirectory(path)) {
        place.kind = Place::Kind::Unknown;
    }
    return place;
}

bool IsWithin(const Place& inner, const Place& outer) {
    return inner.path == outer.path || outer.path == "/" || inner.path.starts_with(outer.path + "/");
}

}  // namespace TAVO::FileMigrateClient
