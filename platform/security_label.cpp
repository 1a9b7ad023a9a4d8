#include "security_label.h"

#include <dirent.h>
#include <fcntl.h>
#include <selinux/selinux.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "label_rules.h"
#include "log.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// One open object, independent of changes to its name. It is opened with O_PATH, which has no effect on devices, pipes
/// and leases.
class Object {
public:
    /// Opens a name relative to a directory. A link is not followed. On failure the object is empty and errno set.
    static Object Open(int dirFd, const char* name, int flags = 0) {
        Object object;
        UniqueFd opened(openat(dirFd, name, O_PATH | O_NOFOLLOW | O_CLOEXEC | flags));
        struct statx status = {};
        if (opened && statx(opened.Get(), "", AT_EMPTY_PATH, STATX_TYPE | STATX_MNT_ID, &status) == 0) {
            object.fd = std::move(opened);
            object.type = status.stx_mode & S_IFMT;
            object.mount = status.stx_mnt_id;
        }
        return object;
    }

    explicit operator bool() const { return static_cast<bool>(fd); }
    [[nodiscard]] int Fd() const { return fd.Get(); }
    [[nodiscard]] mode_t Type() const { return type; }
    [[nodiscard]] std::uint64_t Mount() const { return mount; }  ///< as in /proc/self/mountinfo; 0 if not known
    [[nodiscard]] bool IsDirectory() const { return S_ISDIR(type); }

    /// The path of the object, without links; empty with errno set on failure.
    [[nodiscard]] std::string Path() const {
        char path[PATH_MAX];
        const ssize_t length = readlink(NameInProc().c_str(), path, sizeof(path));
        return {path, length < 0 ? 0 : static_cast<std::size_t>(length)};
    }

    /// Sets the label unless the object has it already, or is on a file system that holds no labels.
    /// @return 0 or an error number
    [[nodiscard]] int SetLabel(const char* label) const {
        const std::string name = NameInProc();
        char* text = nullptr;
        const bool isLabelled = getfilecon_raw(name.c_str(), &text) >= 0;
        const LabelText current(text);
        const bool isRight = isLabelled && std::strcmp(current.get(), label) == 0;
        if (isRight || ((isLabelled || errno == ENODATA) && setfilecon_raw(name.c_str(), label) == 0)) {
            return 0;
        }
        return errno == EOPNOTSUPP && is_selinux_enabled() > 0 ? 0 : errno;
    }

private:
    /// Calls that follow this name reach the object itself, even if it is a link.
    [[nodiscard]] std::string NameInProc() const { return "/proc/self/fd/" + std::to_string(fd.Get()); }

    UniqueFd fd;
    mode_t type = 0;
    std::uint64_t mount = 0;
};

/// @param path  the path of the object
/// @return 0, also if the policy prescribes no label; or an error number
int SetPrescribedLabel(const LabelRules& rules, const Object& object, const char* path) {
    const LabelText label = rules.Lookup(path, object.Type());
    if (label) {
        return object.SetLabel(label.get());
    }
    return errno == ENOENT ? 0 : errno;
}

/// Whether a mounted file system holds labels. Only SELinux knows; without it every file system is tried.
bool HoldsLabels(std::uint64_t mount) {
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

/// Sets the labels of a tree. It holds one descriptor per level; PATH_MAX limits the levels.
class Walk {
public:
    /// @param top  the path of the tree, without links
    Walk(const LabelRules& policy, const std::string& top)
        : rules(policy), path(top == "/" ? "" : top), topLength(path.length()) {}

    /// @return 0 or the error number of the last failure
    [[nodiscard]] int Run(Object top) {
        Visit(std::move(top), /*parentMount=*/0);
        return lastError;
    }

private:
    struct Close {
        void operator()(DIR* directory) const { closedir(directory); }
    };

    [[nodiscard]] const char* Path() const { return path.empty() ? "/" : path.c_str(); }

    void Visit(Object object, std::uint64_t parentMount) {
        if (object.IsDirectory() && object.Mount() != parentMount) {
            if (!HoldsLabels(object.Mount())) {
                return;
            }
            if (IsInsideItself(object)) {
                return Note(ELOOP);
            }
        }
        Note(SetPrescribedLabel(rules, object, Path()));
        if (object.IsDirectory()) {
            VisitChildren(std::move(object));
        }
    }

    /// Whether a bind mount makes the directory one of its own ancestors. Its contents would then get labels for two
    /// paths.
    [[nodiscard]] bool IsInsideItself(const Object& directory) const {
        struct stat own = {}, above = {};
        std::size_t end = fstat(directory.Fd(), &own) == 0 ? path.length() : 0;
        while (end > topLength) {
            end = path.rfind('/', end - 1);
            if (stat((path.substr(0, end) + '/').c_str(), &above) == 0 && above.st_dev == own.st_dev &&
                above.st_ino == own.st_ino) {
                return true;
            }
        }
        return false;
    }

    void VisitChildren(Object directory) {
        const std::uint64_t mount = directory.Mount();
        UniqueFd opened(openat(directory.Fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        directory = {};
        const std::unique_ptr<DIR, Close> stream(opened ? fdopendir(opened.Get()) : nullptr);
        if (!stream) {
            return Note(errno);
        }
        (void)opened.Release();  // the stream owns it now
        errno = 0;
        while (const dirent* entry = readdir(stream.get())) {  // NOLINT(concurrency-mt-unsafe): no other thread has it
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                VisitChild(dirfd(stream.get()), entry->d_name, mount);
            }
            errno = 0;
        }
        Note(errno);
    }

    void VisitChild(int dirFd, const char* name, std::uint64_t mount) {
        const std::size_t length = path.length();
        (path += '/') += name;
        if (path.length() >= PATH_MAX) {
            Note(ENAMETOOLONG);
        } else if (Object child = Object::Open(dirFd, name); child) {
            Visit(std::move(child), mount);
        } else {
            Note(errno);
        }
        path.resize(length);
    }

    /// Logs a failure on the object at `path` and keeps its number. An object that was removed needs no label.
    void Note(int error) {
        if (error != 0 && error != ENOENT) {
            lastError = error;
            LogError("restore label of %{public}s failed, errno=%{public}d", Path(), error);
        }
    }

    const LabelRules& rules;
    std::string path;  ///< of the current object; empty for "/"
    const std::size_t topLength;
    int lastError = 0;
};

/// Opens the path of a request. A path that ends in a slash must be a directory.
Object OpenNamed(const char* path) {
    std::string name(path);
    while (name.length() > 1 && name.back() == '/') {
        name.pop_back();
    }
    return Object::Open(AT_FDCWD, name.c_str(), name == path ? 0 : O_DIRECTORY);
}

/// Calls `restore` with the rules, the object that a path names and its path without links.
/// @return the result of `restore`, which is 0 or an error number; or the error number of an earlier step
template <class Restore>
int With(const char* path, Restore restore) {
    const std::shared_ptr<const LabelRules> rules = LabelRules::Current();
    Object object = rules ? OpenNamed(path) : Object();
    const std::string located = object ? object.Path() : "";
    return located.empty() ? errno : restore(*rules, std::move(object), located);
}

int Answer(int error) {
    errno = error;
    return error == 0 ? 0 : -1;
}

}  // namespace

int Restorecon(const char* path) {
    return Answer(With(path, [](const LabelRules& rules, const Object& object, const std::string& located) {
        return SetPrescribedLabel(rules, object, located.c_str());
    }));
}

int RestoreconRecurseParallel(const char* path, unsigned /*threads*/) {
    return Answer(With(path, [](const LabelRules& rules, Object object, const std::string& located) {
        return Walk(rules, located).Run(std::move(object));
    }));
}

int RestoreconFromParentDir(const char* path) {
    errno = With(path, [](const LabelRules& rules, const Object& object, const std::string& located) {
        const std::string parent = located.substr(0, std::max<std::size_t>(located.rfind('/'), 1));
        const LabelText label = rules.Lookup(parent.c_str(), S_IFDIR);
        if (label) {
            return object.SetLabel(label.get());
        }
        return errno == ENOENT ? 0 : errno;
    });
    return -errno;
}

}  // namespace TAVO::FileMigrateOrvane
