#include "scratch_tree.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace fs = std::filesystem;
namespace {

void Check(bool isDone, const std::string& what) {
    if (!isDone) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

std::string BaseOf(ScratchTree::On fileSystem) {
    if (fileSystem == ScratchTree::On::Data) {
        return fs::is_directory("/data") ? "/data" : "/tmp";
    }
    const char* second = std::getenv("FILE_MIGRATE_SECOND_FS");
    return second != nullptr ? second : "/dev/shm";
}

void SetImmutableFlag(const std::string& path, bool isSet) {
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    int flags = 0;
    Check(ioctl(fd.Get(), FS_IOC_GETFLAGS, &flags) == 0, "flags of " + path);
    flags = isSet ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    Check(ioctl(fd.Get(), FS_IOC_SETFLAGS, &flags) == 0, "immutable flag of " + path);
}

}  // namespace

ScratchTree::ScratchTree(On fileSystem) : root(BaseOf(fileSystem) + "/scratch-XXXXXX") {
    Check(mkdtemp(root.data()) != nullptr && chmod(root.c_str(), 0755) == 0, root);
}

ScratchTree::~ScratchTree() {
    try {
        for (const std::string& path : immutable) {
            SetImmutableFlag(path, false);
        }
        fs::remove_all(root);
    } catch (const std::exception&) {
        // A failure here is not reported. Leftover files show in the listing of the next test.
    }
}

std::string ScratchTree::Dir(const std::string& name, mode_t mode) {
    std::string path = Path(name);
    fs::create_directories(path);
    Check(chmod(path.c_str(), mode) == 0, path);
    return path;
}

std::string ScratchTree::File(const std::string& name, const std::string& content, mode_t mode) {
    std::string path = NewPath(name);
    Check((std::ofstream(path) << content) && chmod(path.c_str(), mode) == 0, path);
    return path;
}

std::string ScratchTree::Link(const std::string& name, const std::string& target) {
    std::string path = NewPath(name);
    Check(symlink(target.c_str(), path.c_str()) == 0, path);
    return path;
}

std::string ScratchTree::Pipe(const std::string& name) {
    std::string path = NewPath(name);
    Check(mkfifo(path.c_str(), 0644) == 0, path);
    return path;
}

std::string ScratchTree::NewPath(const std::string& name) const {
    fs::create_directories(fs::path(Path(name)).parent_path());
    return Path(name);
}

void ScratchTree::MakeImmutable(const std::string& path) {
    SetImmutableFlag(path, true);
    immutable.push_back(path);
}

struct stat Lstat(const std::string& path) {
    struct stat st {};
    Check(lstat(path.c_str(), &st) == 0, path);
    return st;
}

std::string ReadFile(const std::string& path) {
    std::ifstream stream(path);
    Check(static_cast<bool>(stream), path);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace TAVO::FileMigrateOrvane::Testing
