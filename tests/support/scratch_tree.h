// A directory of its own for one test. The destructor removes it with everything that the test put into it, immutable
// files included. Used by one thread. A helper that fails throws, which fails the test.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class ScratchTree {
public:
    /// The file system for the tree: that of /data (of /tmp if there is no /data), or a different one.
    enum class On { Data, SecondFs };

    explicit ScratchTree(On fileSystem = On::Data);
    ~ScratchTree();
    ScratchTree(const ScratchTree&) = delete;
    ScratchTree& operator=(const ScratchTree&) = delete;

    /// The absolute path of a name in this tree, or of the tree.
    [[nodiscard]] std::string Path(const std::string& name = "") const {
        return name.empty() ? root : root + "/" + name;
    }

    // Each creates one object and any missing directories above it, and returns its absolute path. The umask does not
    // change the mode.
    std::string Dir(const std::string& name, mode_t mode = 0755);
    std::string File(const std::string& name, const std::string& content = "content", mode_t mode = 0644);
    std::string Link(const std::string& name, const std::string& target);

    /// Runs a script in this tree. @return what it printed, or nullopt if a command in it failed
    [[nodiscard]] std::optional<std::string> Shell(const std::string& script) const;

    /// Sets the immutable flag of an object in this tree until the end of the test.
    void MakeImmutable(const std::string& path);

private:
    [[nodiscard]] std::string NewPath(const std::string& name) const;

    std::string root;
    Strings immutable;
};

/// A socket of this type at a new socket file.
UniqueFd BoundSocket(const std::string& path, int type);

struct stat Lstat(const std::string& path);
std::string ReadFile(const std::string& path);

}  // namespace TAVO::FileMigrateOrvane::Testing
