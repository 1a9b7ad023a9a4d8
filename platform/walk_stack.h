// The stack of a thread that walks trees.
#pragma once

#include <pthread.h>
#include <sys/resource.h>

#include <cstddef>

namespace TAVO::FileMigrateOrvane {

/// Attributes of a thread whose stack holds the deepest walk that the descriptor limit allows. The default size follows
/// the stack limit of whoever started the daemon, and can be 2 MB.
class WalkThreadAttributes {
public:
    WalkThreadAttributes() {
        rlimit limit{};
        (void)getrlimit(RLIMIT_NOFILE, &limit);  // cannot fail
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, BASE_STACK + limit.rlim_cur * STACK_PER_DESCRIPTOR);
    }
    ~WalkThreadAttributes() { pthread_attr_destroy(&attributes); }
    WalkThreadAttributes(const WalkThreadAttributes&) = delete;
    WalkThreadAttributes& operator=(const WalkThreadAttributes&) = delete;

    [[nodiscard]] pthread_attr_t* Get() { return &attributes; }

private:
    /// The stack that a thread needs besides the levels of its walk.
    static constexpr std::size_t BASE_STACK = std::size_t{1} << 20;
    /// More stack than any walk needs per descriptor. Pages that are not used cost nothing.
    static constexpr std::size_t STACK_PER_DESCRIPTOR = 1024;

    pthread_attr_t attributes{};
};

}  // namespace TAVO::FileMigrateOrvane
