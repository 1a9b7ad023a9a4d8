#include <grp.h>
#include <pwd.h>

#include <cerrno>

#include "file_migrate_client.hpp"

namespace TAVO::FileMigrateClient {
namespace {

template <class Record, class Lookup>
bool IsUnknown(Lookup lookup, const std::string& name) {
    if (name.find_first_not_of("0123456789") == std::string::npos) {
        return false;  // the daemon looks up no numbers
    }
    Record record{};
    Record* found = nullptr;
    char buffer[1024];
    const int error = lookup(name.c_str(), &record, buffer, sizeof(buffer), &found);
    // Another error, such as ERANGE for a group with many members, says nothing about the name.
    return found == nullptr && (error == 0 || error == ENOENT || error == ESRCH);
}

}  // namespace

OwnerField UnknownOwner(const std::string& user, const std::string& group) {
    if (IsUnknown<passwd>(getpwnam_r, user)) {
        return OwnerField::User;
    }
    return IsUnknown<::group>(getgrnam_r, group) ? OwnerField::Group : OwnerField::None;
}

}  // namespace TAVO::FileMigrateClient
