#include "scratch_tree.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace TAVO::FileMigrateOrvane::Testing {
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

}  // namespace

ScratchTree::ScratchTree(On fileSystem) : root(BaseOf(fileSystem) + "/scratch-XXXXXX") {
    Check(mkdtemp(root.data()) != nullptr && chmod(root.c_str(), 0755) == 0, root);
}

ScratchTree::~ScratchTree() {
    try {
        for (const std::string& path : immutable) {
            (void)Shell("chattr -i " + path);
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

std::optional<std::string> ScratchTree::Shell(const std::string& script) const {
    // NOLINTNEXTLINE(cert-env33-c): the tests' own scripts
    FILE* const pipe = popen(("set -e; cd " + root + "; " + script).c_str(), "r");
    std::string output;
    for (int c = 0; (c = std::getc(pipe)) != EOF;) {
        output += static_cast<char>(c);
    }
    return pclose(pipe) == 0 ? std::optional(output) : std::nullopt;
}

std::string ScratchTree::NewPath(const std::string& name) const {
    fs::create_directories(fs::path(Path(name)).parent_path());
    return Path(name);
}

void ScratchTree::MakeImmutable(const std::string& path) {
    Check(Shell("chattr +i " + path).has_value(), path);
    immutable.push_back(path);
}

UniqueFd BoundSocket(const std::string& path, int type) {
    UniqueFd fd(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    Check(bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, path);
    return fd;
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
