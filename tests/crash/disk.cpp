// A disk that logs every write, or one that is slow: a FUSE file system whose files "0", "1", ... are images for loop
// devices and store their data in ordinary files of the same size.
//
//     disk log LOG MOUNTPOINT IMAGE...
//     disk delay READ_US WRITE_US MOUNTPOINT IMAGE...
//
// With `log`, each write and each flush is appended to one log: a WriteHeader, then the bytes written. A loop device
// turns a flush, and a write that must reach the disk at once, into an fsync after the writes. One thread serves all
// requests, so that the order of the log is the order of the writes. With `delay`, each read and each write takes at
// least so many microseconds, and many are served side by side. Ends when it is unmounted or killed.
#define FUSE_USE_VERSION 312
#include <fcntl.h>
#include <fuse_lowlevel.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string_view>
#include <vector>

namespace {

struct WriteHeader {
    std::uint32_t disk;
    std::uint32_t length;  ///< 0 for a flush
    std::uint64_t offset;
};

constexpr double FOR_EVER = std::numeric_limits<std::int32_t>::max();  ///< seconds that the kernel may cache a reply
constexpr fuse_ino_t FIRST_IMAGE = FUSE_ROOT_ID + 1;

constexpr unsigned THREADS = 64;  ///< requests that a slow disk has in work at once

int g_log = -1;          ///< of a disk that logs
long g_readDelayNs = 0;  ///< of a slow disk, like the next
long g_writeDelayNs = 0;
std::vector<int> g_images;

int Image(fuse_ino_t node) {
    return g_images[node - FIRST_IMAGE];
}

void Wait(long nanoseconds) {
    if (nanoseconds > 0) {
        const timespec time{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
        nanosleep(&time, nullptr);
    }
}

/// Ends the program if it cannot write. A log with a gap would show losses that never happened, or hide some that did.
void Append(fuse_ino_t node, const void* data, std::size_t length, off_t offset) {
    if (g_log < 0) {
        return;
    }
    WriteHeader header{static_cast<std::uint32_t>(node - FIRST_IMAGE), static_cast<std::uint32_t>(length),
                       static_cast<std::uint64_t>(offset)};
    const iovec parts[] = {{&header, sizeof(header)}, {const_cast<void*>(data), length}};
    if (writev(g_log, parts, 2) != static_cast<ssize_t>(sizeof(header) + length)) {
        std::perror("disk: the log");
        std::abort();
    }
}

struct stat Attributes(fuse_ino_t node) {
    struct stat attributes {};
    if (node == FUSE_ROOT_ID) {
        attributes.st_mode = S_IFDIR | 0755;
    } else {
        fstat(Image(node), &attributes);
    }
    attributes.st_ino = node;
    return attributes;
}

void Init(void*, fuse_conn_info* connection) {
    connection->max_background = connection->congestion_threshold = THREADS;
}

void Lookup(fuse_req_t request, fuse_ino_t, const char* name) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(name, &end, 10);
    if (*end != '\0' || number >= g_images.size()) {
        fuse_reply_err(request, ENOENT);
        return;
    }
    fuse_entry_param entry{};
    entry.ino = FIRST_IMAGE + number;
    entry.attr = Attributes(entry.ino);
    entry.attr_timeout = entry.entry_timeout = FOR_EVER;
    fuse_reply_entry(request, &entry);
}

void GetAttributes(fuse_req_t request, fuse_ino_t node, fuse_file_info*) {
    const struct stat attributes = Attributes(node);
    fuse_reply_attr(request, &attributes, FOR_EVER);
}

/// Without the page cache, which would delay and merge the writes of the loop device.
void Open(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    file->direct_io = 1;
    fuse_reply_open(request, file);
}

void Read(fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset, fuse_file_info*) {
    Wait(g_readDelayNs);
    thread_local std::vector<char> data;  // kept, because new pages cost as much as the copying
    data.resize(std::max(data.size(), size));
    const ssize_t length = pread(Image(node), data.data(), size, offset);
    if (length < 0) {
        fuse_reply_err(request, errno);
    } else {
        fuse_reply_buf(request, data.data(), static_cast<std::size_t>(length));
    }
}

void Write(fuse_req_t request, fuse_ino_t node, const char* data, std::size_t size, off_t offset, fuse_file_info*) {
    Wait(g_writeDelayNs);
    const ssize_t length = pwrite(Image(node), data, size, offset);
    if (length < 0) {
        fuse_reply_err(request, errno);
        return;
    }
    Append(node, data, static_cast<std::size_t>(length), offset);
    fuse_reply_write(request, static_cast<std::size_t>(length));
}

void Flush(fuse_req_t request, fuse_ino_t node, int, fuse_file_info*) {
    Append(node, nullptr, 0, 0);
    fuse_reply_err(request, 0);
}

fuse_lowlevel_ops Operations() {
    fuse_lowlevel_ops operations{};
    operations.init = Init;
    operations.lookup = Lookup;
    operations.getattr = GetAttributes;
    operations.open = Open;
    operations.read = Read;
    operations.write = Write;
    operations.fsync = Flush;
    return operations;
}

int Serve(fuse_session* session) {
    if (g_log >= 0) {
        return fuse_session_loop(session);
    }
    // The threads inherit both. A disk does not wait for a processor, nor longer than it is asked to.
    const sched_param priority{1};
    sched_setscheduler(0, SCHED_FIFO, &priority);
    prctl(PR_SET_TIMERSLACK, 1);
    fuse_loop_config* const config = fuse_loop_cfg_create();
    fuse_loop_cfg_set_max_threads(config, THREADS);
    fuse_loop_cfg_set_idle_threads(config, THREADS);
    const int result = fuse_session_loop_mt(session, config);
    fuse_loop_cfg_destroy(config);
    return result;
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::string_view mode = argc > 1 ? argv[1] : "";
    const int place = mode == "log" ? 3 : 4;
    if ((mode != "log" && mode != "delay") || argc < place + 2) {
        std::fputs("usage: disk log LOG MOUNTPOINT IMAGE...\n       disk delay READ_US WRITE_US MOUNTPOINT IMAGE...\n",
                   stderr);
        return 2;
    }
    if (mode == "log") {
        g_log = open(argv[2], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    } else {
        g_readDelayNs = std::atol(argv[2]) * 1000;
        g_writeDelayNs = std::atol(argv[3]) * 1000;
    }
    for (int i = place + 1; i < argc; ++i) {
        g_images.push_back(open(argv[i], O_RDWR | O_CLOEXEC));
    }
    char* arguments[] = {argv[0], nullptr};
    fuse_args options = FUSE_ARGS_INIT(1, arguments);
    const fuse_lowlevel_ops operations = Operations();
    fuse_session* const session = fuse_session_new(&options, &operations, sizeof(operations), nullptr);
    if (session == nullptr || fuse_session_mount(session, argv[place]) != 0) {
        return 1;
    }
    return Serve(session) == 0 ? 0 : 1;
}
