// Preloaded into the daemon: makes chosen calls fail. The environment variable FAULT holds faults separated by blanks,
// each "call@where=what". Without the variable all calls work.
//
//   write@TEXT=short         half of the bytes are written to a file whose path holds TEXT
//   write@TEXT=ERRNO         such a write fails
//   fsync@TEXT=ERRNO         fsync of such a file fails
//   klogctl@ACTION=ERRNO     the kernel-log call with this action number (10 size, 3 read) fails
//   klogctl@text=FILE        the kernel log is the content of FILE
//   pthread_create@N=ERRNO   the N-th thread, counted from 0, is not created
//   accept@N=ERRNO           the first N accepts fail
//   getdents64@types=none    directories are listed without the entries' types
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/klog.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>

namespace {

/// The fault for a call whose place `isMeant` accepts; empty if the call is to work.
std::string FaultOf(const std::string& call, const std::function<bool(const std::string&)>& isMeant) {
    const char* faults = std::getenv("FAULT");
    std::istringstream words(faults != nullptr ? faults : "");
    for (std::string word; words >> word;) {
        const std::size_t at = word.find('@'), equals = word.find('=');
        if (word.substr(0, at) == call && isMeant(word.substr(at + 1, equals - at - 1))) {
            return word.substr(equals + 1);
        }
    }
    return "";
}

std::string FaultAt(const std::string& call, const std::string& place) {
    return FaultOf(call, [&place](const std::string& where) { return where == place; });
}

std::string FaultOfFile(const std::string& call, int fd) {
    char path[PATH_MAX] = {};
    static_cast<void>(!readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof(path) - 1));
    return FaultOf(call, [&path](const std::string& text) { return std::strstr(path, text.c_str()) != nullptr; });
}

int FailWith(const std::string& error) {
    errno = std::stoi(error);
    return -1;
}

template <class Function>
Function* Next(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

ssize_t write(int fd, const void* buffer, size_t count) {
    const std::string fault = fd > STDERR_FILENO ? FaultOfFile("write", fd) : "";
    if (!fault.empty() && fault != "short") {
        return FailWith(fault);
    }
    return Next(&write, "write")(fd, buffer, fault.empty() ? count : count / 2);
}

int fsync(int fd) {
    const std::string fault = FaultOfFile("fsync", fd);
    return fault.empty() ? Next(&fsync, "fsync")(fd) : FailWith(fault);
}

int klogctl(int action, char* buffer, int length) {
    if (const std::string file = FaultAt("klogctl", "text"); !file.empty()) {
        std::ifstream stream(file);
        const std::string text(std::istreambuf_iterator<char>(stream), {});
        return static_cast<int>(buffer == nullptr ? text.size() : text.copy(buffer, static_cast<std::size_t>(length)));
    }
    const std::string fault = FaultAt("klogctl", std::to_string(action));
    return fault.empty() ? Next(&klogctl, "klogctl")(action, buffer, length) : FailWith(fault);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
    static std::atomic<int> count{0};
    const std::string fault = FaultAt("pthread_create", std::to_string(count++));
    return fault.empty() ? Next(&pthread_create, "pthread_create")(thread, attributes, body, argument)
                         : std::stoi(fault);
}

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    static std::atomic<int> count{0};
    const int number = count++;
    const std::string fault = FaultOf("accept", [number](const std::string& n) { return number < std::stoi(n); });
    return fault.empty() ? Next(&accept4, "accept4")(fd, address, length, flags) : FailWith(fault);
}

ssize_t getdents64(int fd, void* buffer, size_t length) noexcept {
    const ssize_t size = Next(&getdents64, "getdents64")(fd, buffer, length);
    for (ssize_t at = 0; at < size && !FaultAt("getdents64", "types").empty();) {
        auto* const entry = reinterpret_cast<dirent*>(static_cast<char*>(buffer) + at);
        entry->d_type = DT_UNKNOWN;
        at += entry->d_reclen;
    }
    return size;
}

}  // extern "C"
