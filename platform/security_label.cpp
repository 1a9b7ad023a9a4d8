#include "security_label.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include "labelled_object.h"

namespace TAVO::FileMigrateOrvane {
namespace {

int Restore(const char* path) {
    const LabelTarget target = LabelTarget::Open(path);
    return target.object ? target.object.SetPrescribedLabel(*target.rules, target.path.c_str()) : errno;
}

int RestoreFromParent(const char* path) {
    const LabelTarget target = LabelTarget::Open(path);
    const std::string parent = target.path.substr(0, std::max<std::size_t>(target.path.rfind('/'), 1));
    return target.object ? target.object.SetLabelOfDirectory(*target.rules, parent.c_str()) : errno;
}

}  // namespace

int Restorecon(const char* path) {
    errno = Restore(path);
    return errno == 0 ? 0 : -1;
}

int RestoreconFromParentDir(const char* path) {
    errno = RestoreFromParent(path);
    return -errno;
}

}  // namespace TAVO::FileMigrateOrvane
