// A directory that this process makes and then opens. Whoever owns the parent can put another directory in its place
// between the two, even one of root's that he cannot enter himself. What is then given to "the new directory", an owner
// or a mode, would open that one to him.
//
// So a directory is made with a mode that no finished one has, and only an empty one with that mode that nobody in this
// process works on is taken for the new one. Everything here may be called from any thread.
#pragma once

#include <sys/stat.h>

#include <utility>

#include "entry.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

/// The mode to make a directory with that is opened by OpenNew(): private, with a bit that nothing else sets on a
/// private directory.
inline constexpr mode_t NEW_DIRECTORY_MODE = S_ISVTX | S_IRWXU;

/// An open directory that this process has made. As long as the object lives, no other one can be opened for it, so it
/// has to live until the directory has its final mode.
class NewDirectory {
public:
    NewDirectory() = default;
    NewDirectory(NewDirectory&& other) noexcept
        : fd(std::move(other.fd)), claimed(std::exchange(other.claimed, {})), inherited(other.inherited) {}
    NewDirectory& operator=(NewDirectory&& other) noexcept {
        std::swap(fd, other.fd);
        std::swap(claimed, other.claimed);
        std::swap(inherited, other.inherited);
        return *this;
    }
    ~NewDirectory();

    /// Opens the directory that mkdir() has just made with NEW_DIRECTORY_MODE.
    /// @return 0, EEXIST if its name belongs to another object, or why it cannot be opened
    [[nodiscard]] int Open(const Entry& entry);

    [[nodiscard]] const UniqueFd& Fd() const { return fd; }
    /// The set-group-ID bit, if the parent has handed it down.
    [[nodiscard]] mode_t InheritedBits() const { return inherited; }
    /// Gives the descriptor away. The directory stays claimed.
    [[nodiscard]] UniqueFd ReleaseFd() { return std::move(fd); }

private:
    [[nodiscard]] int Check();

    UniqueFd fd;
    std::pair<dev_t, ino_t> claimed{};  ///< device and inode; zeros for none
    mode_t inherited = 0;
};

}  // namespace TAVO::FileMigrateOrvane
