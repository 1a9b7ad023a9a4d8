// A directory that this process creates and then opens. In between, the owner of the parent can put another directory
// in its place, even a directory of root's that the owner cannot enter. If the daemon then changed the owner or mode of
// "the new directory", it would give that directory to the user.
//
// So a directory is created with a mode that no finished directory has. NewDirectory accepts one only if it has that
// mode, is empty or was born since the caller began, and is not in use by another worker. Everything here may be called
// from any thread.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <utility>

#include "entry.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// The mode with which to create a directory for NewDirectory: private, with a bit that nothing else sets on a private
/// directory.
inline constexpr mode_t NEW_DIRECTORY_MODE = S_ISVTX | S_IRWXU;

/// The time that a new inode would get now: that of the clock's last tick.
[[nodiscard]] timespec InodeClock();

/// An open directory that this process has created. While the object exists, no other object can open the directory as
/// new, so it must exist until the directory has its final mode.
class NewDirectory {
public:
    NewDirectory() = default;
    NewDirectory(NewDirectory&& other) noexcept
        : fd(std::move(other.fd)),
          claimed(std::exchange(other.claimed, {})),
          inherited(other.inherited),
          group(other.group) {}
    NewDirectory& operator=(NewDirectory&& other) noexcept {
        std::swap(fd, other.fd);
        std::swap(claimed, other.claimed);
        std::swap(inherited, other.inherited);
        std::swap(group, other.group);
        return *this;
    }
    ~NewDirectory();

    /// Opens the directory that mkdir() has just created with NEW_DIRECTORY_MODE.
    /// @param start  InodeClock() before mkdir(). Give it if other workers may already have put something into the
    ///               directory: then the time of its creation shows that it is new
    /// @return 0, EEXIST if its name belongs to another object, or why it cannot be opened
    [[nodiscard]] int Open(const Entry& entry, const std::optional<timespec>& start = std::nullopt);

    [[nodiscard]] const UniqueFd& Fd() const { return fd; }
    /// The set-group-ID bit, if the parent has handed it down.
    [[nodiscard]] mode_t InheritedBits() const { return inherited; }
    /// The group that it got: the daemon's or, if the parent has handed that down too, the parent's.
    [[nodiscard]] gid_t Group() const { return group; }
    /// Gives the descriptor away. The directory stays claimed.
    [[nodiscard]] UniqueFd ReleaseFd() { return std::move(fd); }

private:
    [[nodiscard]] int Check(const std::optional<timespec>& start);

    UniqueFd fd;
    std::pair<dev_t, ino_t> claimed{};  ///< device and inode; zeros without a claim
    mode_t inherited = 0;
    gid_t group = 0;
};

}  // namespace TAVO::FileMigrateOrvane
