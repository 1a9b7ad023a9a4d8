// An object whose SELinux label is restored. It is open, so nobody can put another object in its place meanwhile.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>

#include "label_rules.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

class LabelledObject {
public:
    /// Opens a name relative to a directory. A link is opened itself. Has no effect on devices, pipes and leases.
    /// On failure the object is empty and errno set.
    [[nodiscard]] static LabelledObject Open(int dirFd, const char* name, int flags = 0);

    explicit operator bool() const { return static_cast<bool>(fd); }
    [[nodiscard]] int Fd() const { return fd.Get(); }
    [[nodiscard]] bool IsDirectory() const { return S_ISDIR(type); }
    /// Whether it is the top of a mounted file system.
    [[nodiscard]] bool IsMountPoint() const { return isMountPoint; }
    /// Whether its file system holds labels. Only SELinux knows; without it every file system is tried.
    [[nodiscard]] bool CanHoldLabel() const;
    /// Its path without links; empty with errno set on failure.
    [[nodiscard]] std::string Path() const;

    /// Gives it the label that the policy prescribes for a path, unless it has the label already.
    /// @return 0, also if the policy prescribes no label, or if the object's file system holds none; or an error number
    [[nodiscard]] int SetPrescribedLabel(const LabelRules& rules, const char* path) const;
    /// The same with the label that the policy prescribes for a directory.
    [[nodiscard]] int SetLabelOfDirectory(const LabelRules& rules, const char* directory) const;

private:
    [[nodiscard]] int SetLabel(const LabelText& label) const;
    [[nodiscard]] std::string NameInProc() const;

    UniqueFd fd;
    mode_t type = 0;
    bool isMountPoint = false;
    std::uint64_t mount = 0;  ///< as in /proc/self/mountinfo; 0 if not known
};

/// What a request names.
struct LabelTarget {
    /// A path that ends in a slash must be a directory. On failure the object is empty and errno set.
    [[nodiscard]] static LabelTarget Open(const char* path);

    std::shared_ptr<const LabelRules> rules;
    LabelledObject object;
    std::string path;  ///< without links
};

}  // namespace TAVO::FileMigrateOrvane
