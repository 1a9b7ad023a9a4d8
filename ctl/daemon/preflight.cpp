#include "preflight.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "record.h"
#include "sub_command.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t SHOWN_PATHS = 3;

/// A tree, as far as it can be read.
struct Tree {
    Losses losses;
    std::uint64_t objects = 0;  ///< files and directories, with its top
    std::uint64_t bytes = 0;    ///< allocated by its files
};

void AddObject(const fs::directory_entry& entry, Tree& tree) {
    struct stat st {};
    if (lstat(entry.path().c_str(), &st) != 0) {
        tree.losses.isWhole = tree.losses.isWhole && errno == ENOENT;  // removed meanwhile
        return;
    }
    if (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode)) {
        ++tree.objects;
        tree.bytes += S_ISREG(st.st_mode) ? static_cast<std::uint64_t>(st.st_blocks) * 512 : 0;
        return;
    }
    ++(S_ISLNK(st.st_mode) ? tree.losses.links : tree.losses.specialFiles);
    if (tree.losses.firstPaths.size() < SHOWN_PATHS) {
        tree.losses.firstPaths.push_back(entry.path().native());
    }
}

Tree LookAtTree(const std::string& path) {
    Tree tree;
    std::error_code error;
    AddObject(fs::directory_entry(path, error), tree);
    if (!fs::is_directory(fs::symlink_status(path, error))) {
        return tree;
    }
    error.clear();
    for (fs::recursive_directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        AddObject(*entry, tree);
    }
    tree.losses.isWhole = tree.losses.isWhole && !error;
    return tree;
}

std::optional<struct statx> MountOf(const std::string& path, int flags) {
    struct statx st {};
    const bool isKnown = statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE | STATX_MNT_ID, &st) == 0;
    return isKnown ? std::optional(st) : std::nullopt;
}

/// Whether rename cannot move the source there: another file system, or another mount of the same one. Unset if the
/// tool may not look.
std::optional<bool> IsAcross(const std::string& source, const std::string& directory) {
    const auto from = MountOf(source, AT_SYMLINK_NOFOLLOW);
    const auto to = MountOf(directory, 0);
    if (!from || !to) {
        return std::nullopt;
    }
    return from->stx_dev_major != to->stx_dev_major || from->stx_dev_minor != to->stx_dev_minor ||
           ((from->stx_mask & to->stx_mask & STATX_MNT_ID) != 0 && from->stx_mnt_id != to->stx_mnt_id);
}

bool IsDirectory(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

/// "1 inode", "2 inodes".
std::string Counted(std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// What the tree needs and a file system does not have; empty if it has enough. Some report 0 inodes of 0.
std::string Lacking(const struct statvfs& target, const Tree& tree) {
    const std::uint64_t free = std::uint64_t{target.f_bfree} * target.f_frsize;
    if (free < tree.bytes) {
        return "needs " + HumanSize(tree.bytes / 1024) + ", and only " + HumanSize(free / 1024) + " are free at ";
    }
    return target.f_files != 0 && target.f_ffree < tree.objects
               ? "needs " + Counted(tree.objects, "inode") + ", and only " + std::to_string(target.f_ffree) +
                     " are free at "
               : std::string();
}

/// Why copy-comb would destroy its source; empty if no reason is known.
std::string CombinedCopyRefusal(const Arguments& arguments, const Tree& tree) {
    const std::string& destination = arguments.destination;
    const bool isTree = IsDirectory(arguments.path);
    const std::string directory = isTree ? destination : Reader::ParentOf(destination);
    if (!IsDirectory(directory)) {
        return (isTree ? "the destination " : "the parent of the destination, ") + Printable(directory) +
               (isTree ? "" : ",") + " is not an existing directory";
    }
    std::error_code error;
    const fs::path source = fs::canonical(arguments.path, error);
    const fs::path target = fs::canonical(directory, error);
    if (isTree && !error && (target.native() + "/").starts_with(source.native() + "/")) {
        return "the destination " + Printable(destination) + " lies inside the source";
    }
    struct statvfs free {};
    const std::string lacking = statvfs(directory.c_str(), &free) == 0 ? Lacking(free, tree) : std::string();
    return lacking.empty() ? lacking : "the source " + lacking + Printable(directory);
}

/// A path from the table of mounts, in which a space is "\040" and a backslash "\134".
std::string Unescaped(std::string text) {
    constexpr std::size_t digits = 3;
    for (std::size_t at = text.find('\\'); at != std::string::npos; at = text.find('\\', at + 1)) {
        text.replace(at, digits + 1, 1, static_cast<char>(std::stoi(text.substr(at + 1, digits), nullptr, 8)));
    }
    return text;
}

/// Mount points below a path. The daemon goes into them, as rm and mv do.
std::vector<std::string> MountsBelow(const std::string& path) {
    std::error_code error;
    const std::string top = fs::canonical(path, error).native() + "/";
    std::vector<std::string> mounts;
    std::ifstream table("/proc/self/mounts");
    for (std::string device, directory, rest; table >> device >> directory && std::getline(table, rest);) {
        const std::string mount = Unescaped(directory);
        if (!error && (mount + "/").starts_with(top)) {
            mounts.push_back(mount);
        }
    }
    return mounts;
}

}  // namespace

std::string Preflight::LossText() const {
    if (!losses || (losses->Count() == 0 && losses->isWhole)) {
        return {};
    }
    std::string text = losses->isWhole ? "" : "the source could not be read completely; at least ";
    if (losses->links > 0 || losses->specialFiles == 0) {
        text += Counted(losses->links, "symbolic link");
    }
    if (losses->specialFiles > 0) {
        text += (losses->links > 0 ? " and " : "") + Counted(losses->specialFiles, "special file");
    }
    text += " would be lost";
    for (const std::string& path : losses->firstPaths) {
        text += (&path == losses->firstPaths.data() ? ": " : ", ") + Printable(path);
    }
    return text + (losses->firstPaths.size() < losses->Count() ? ", ..." : "");
}

void Preflight::PutInto(Json& object) const {
    if (!losses) {
        return;
    }
    object["lost"] = losses->isWhole ? Json(losses->Count()) : Json();
    object["lost_paths"] = Json::array();
    for (const std::string& path : losses->firstPaths) {
        Json entry;
        PutText(entry, "path", path);
        object["lost_paths"].push_back(std::move(entry));
    }
}

Preflight Inspect(const SubCommand& command, const Arguments& arguments) {
    Preflight preflight;
    struct stat st {};
    if (!command.Is(RemovesSource) || lstat(arguments.path.c_str(), &st) != 0) {
        return preflight;
    }
    for (const std::string& mount : MountsBelow(arguments.path)) {
        preflight.warnings.push_back(Printable(mount) + " is a mount point: the files mounted there are affected too");
    }
    const std::string directory =
        command.Is(MeansChildren) ? arguments.destination : Reader::ParentOf(arguments.destination);
    if (command.Is(Moves)) {
        preflight.isAcross = IsAcross(arguments.path, directory);
    }
    if (command.Is(TakesForce) || preflight.isAcross.value_or(false)) {
        const Tree tree = LookAtTree(arguments.path);
        preflight.losses = tree.losses;
        if (command.Is(TakesForce)) {
            preflight.refusal = CombinedCopyRefusal(arguments, tree);
        }
    }
    return preflight;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
