#include "labelled_object.h"

#include <fcntl.h>
#include <selinux/selinux.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>

namespace TAVO::FileMigrateOrvane {

LabelledObject LabelledObject::Open(int dirFd, const char* name, int flags) {
    LabelledObject object;
    UniqueFd opened(openat(dirFd, name, O_PATH | O_NOFOLLOW | O_CLOEXEC | flags));
    struct statx status = {};
    if (opened && statx(opened.Get(), "", AT_EMPTY_PATH, STATX_TYPE | STATX_MNT_ID, &status) == 0) {
        object.fd = std::move(opened);
        object.type = status.stx_mode & S_IFMT;
        object.isMountPoint = (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
        object.mount = status.stx_mnt_id;
    }
    return object;
}

bool LabelledObject::CanHoldLabel() const {
    if (is_selinux_enabled() <= 0) {
        return true;
    }
    const std::string start = std::to_string(mount) + ' ';
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        if (line.starts_with(start)) {
            return line.find(",seclabel", line.rfind(' ')) != std::string::npos;
        }
    }
    return true;
}

std::string LabelledObject::Path() const {
    char path[PATH_MAX];
    const ssize_t length = readlink(NameInProc().c_str(), path, sizeof(path));
    return {path, length < 0 ? 0 : static_cast<std::size_t>(length)};
}

int LabelledObject::SetPrescribedLabel(const LabelRules& rules, const char* path) const {
    return SetLabel(rules.Lookup(path, type));
}

int LabelledObject::SetLabelOfDirectory(const LabelRules& rules, const char* directory) const {
    return SetLabel(rules.Lookup(directory, S_IFDIR));
}

/// @param label  if it is null, errno says why
int LabelledObject::SetLabel(const LabelText& label) const {
    if (!label) {
        return errno == ENOENT ? 0 : errno;
    }
    const std::string name = NameInProc();
    char* text = nullptr;
    const bool isLabelled = getfilecon_raw(name.c_str(), &text) >= 0;
    const LabelText current(text);
    const bool isRight = isLabelled && std::strcmp(current.get(), label.get()) == 0;
    if (isRight || ((isLabelled || errno == ENODATA) && setfilecon_raw(name.c_str(), label.get()) == 0)) {
        return 0;
    }
    return errno == EOPNOTSUPP && is_selinux_enabled() > 0 ? 0 : errno;
}

/// Calls that follow this name reach the object itself, even if it is a link.
std::string LabelledObject::NameInProc() const {
    return "/proc/self/fd/" + std::to_string(fd.Get());
}

LabelTarget LabelTarget::Open(const char* path) {
    LabelTarget target{LabelRules::Current(), {}, {}};
    if (target.rules == nullptr) {
        return target;
    }
    std::string name(path);
    while (name.length() > 1 && name.back() == '/') {
        name.pop_back();
    }
    target.object = LabelledObject::Open(AT_FDCWD, name.c_str(), name == path ? 0 : O_DIRECTORY);
    if (target.object) {
        target.path = target.object.Path();
    }
    if (target.path.empty()) {
        target.object = {};
    }
    return target;
}

}  // namespace TAVO::FileMigrateOrvane
