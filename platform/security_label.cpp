#include "security_label.h"

#include <libgen.h>
#include <selinux/label.h>
#include <selinux/restorecon.h>
#include <selinux/selinux.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>

#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Digests would make the next walk skip trees whose labels were changed meanwhile. The whole prescribed label is
/// set, not only its type, so that all three functions agree. One set of flags for all calls: the library keeps
/// some of its state in common.
constexpr unsigned int FLAGS =
    SELINUX_RESTORECON_SKIP_DIGEST | SELINUX_RESTORECON_SET_SPECFILE_CTX | SELINUX_RESTORECON_REALPATH;

struct Free {
    void operator()(char* text) const { std::free(text); }
    void operator()(selabel_handle* rules) const { selabel_close(rules); }
};
using CText = std::unique_ptr<char, Free>;

/// What tells one state of a policy file from another; all zero for a file that is not there.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    bool operator==(const FileStamp& other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               SameTime(modified, other.modified) && SameTime(changed, other.changed);
    }

private:
    static bool SameTime(const timespec& a, const timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    }
};

/// The files that the rules are read from: file_contexts with each of these endings, and the configuration that
/// says in which folder they are.
constexpr std::array<const char*, 8> RULE_FILES = {"",          ".bin",          ".local", ".local.bin",
                                                   ".homedirs", ".homedirs.bin", ".subs",  ".subs_dist"};
constexpr const char* CONFIGURATION = "/etc/selinux/config";
using PolicyStamp = std::array<FileStamp, RULE_FILES.size()>;

FileStamp StampOf(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        return {};
    }
    return {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
}

/// Set on a thread while it labels a single path: its messages then belong to no walk.
thread_local bool inSinglePath = false;

class SinglePathScope {
public:
    SinglePathScope() { inSinglePath = true; }
    ~SinglePathScope() { inSinglePath = false; }
    SinglePathScope(const SinglePathScope&) = delete;
    SinglePathScope& operator=(const SinglePathScope&) = delete;
};

/// Error number of the walk's last failure; the library's own result of a walk does not carry one.
std::atomic<int> walkError{0};

__attribute__((format(printf, 2, 3))) int PrintLibraryMessage(int type, const char* format, ...) {
    if (type == SELINUX_ERROR && errno != 0 && !inSinglePath) {
        walkError = errno;
    }
    char buffer[PATH_MAX + 256];
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(buffer, sizeof(buffer), format, arguments));
    va_end(arguments);
    buffer[std::strcspn(buffer, "\n")] = '\0';
    const char* const text = buffer;
    if (type == SELINUX_INFO) {
        LogInfo({"%{public}s", "libselinux"}, text);
    } else if (type == SELINUX_ERROR) {
        LogError({"%{public}s", "libselinux"}, text);
    } else {
        LogWarn({"%{public}s", "libselinux"}, text);
    }
    return 0;
}

/// The policy's labelling rules. Whoever uses them holds `mutex` shared from Acquire() on.
class Policy {
public:
    /// Reads the rules if that was not done yet or the policy has changed since.
    /// @return 0 with the shared lock held; an error number without it, EOPNOTSUPP without a policy
    int Acquire(std::shared_lock<std::shared_mutex>& lock) {
        lock = std::shared_lock(mutex);
        while (!IsCurrent()) {
            lock.unlock();
            if (const int error = Reload(); error != 0) {
                return error;
            }
            lock.lock();
        }
        return 0;
    }

    /// The label of a directory, null with ENOENT where the policy prescribes none.
    CText LabelOfDirectory(const char* path) const {
        char* label = nullptr;
        return CText(selabel_lookup_raw(rules.get(), &label, path, S_IFDIR) == 0 ? label : nullptr);
    }

private:
    [[nodiscard]] bool IsCurrent() const {
        return rules != nullptr && StampOf(CONFIGURATION) == configuration && StampOfRules() == ruleFiles;
    }

    static PolicyStamp StampOfRules() {
        PolicyStamp stamp;
        const char* base = selinux_file_context_path();
        for (std::size_t i = 0; base != nullptr && i < stamp.size(); ++i) {
            stamp[i] = StampOf(std::string(base) + RULE_FILES[i]);
        }
        return stamp;
    }

    int Reload() {
        const std::unique_lock lock(mutex);
        if (IsCurrent()) {
            return 0;
        }
        PrepareLibrary();
        // Stamps are taken before the files are read: a change in between is noticed by the next call.
        configuration = StampOf(CONFIGURATION);
        selinux_reset_config();
        ruleFiles = StampOfRules();
        selinux_restorecon_set_sehandle(nullptr);
        rules.reset();
        if (ruleFiles[0] == FileStamp{} && ruleFiles[1] == FileStamp{}) {
            return EOPNOTSUPP;
        }
        errno = 0;
        rules.reset(selabel_open(SELABEL_CTX_FILE, nullptr, 0));
        if (rules == nullptr) {
            return errno != 0 ? errno : EINVAL;
        }
        selinux_restorecon_set_sehandle(rules.get());
        FinishFirstUse();
        return 0;
    }

    static void PrepareLibrary() {
        selinux_callback callback{};
        callback.func_log = PrintLibraryMessage;
        selinux_set_callback(SELINUX_CB_LOG, callback);
    }

    /// The library initialises itself at its first call, which changes nothing here and is made under the lock.
    static void FinishFirstUse() { static_cast<void>(selinux_restorecon("/", FLAGS | SELINUX_RESTORECON_NOCHANGE)); }

    std::shared_mutex mutex;
    std::unique_ptr<selabel_handle, Free> rules;  // guarded by mutex, as are the stamps
    FileStamp configuration;
    PolicyStamp ruleFiles;
};

Policy& ThePolicy() {
    // Never destroyed: a worker may still be in it when the process exits.
    static Policy& policy = *new Policy;
    return policy;
}

/// Held by the one walk that may run: a walk has threads of its own, and their messages, which `walkError` is
/// taken from, do not tell whose they are.
std::mutex walkMutex;

/// The path to hand to the library, which takes a final link for itself even before a slash; the kernel follows it.
CText Located(const char* path) {
    const std::size_t length = std::strlen(path);
    const bool isFollowed = length > 0 && path[length - 1] == '/';
    return CText(isFollowed ? realpath(path, nullptr) : strdup(path));
}

int FailWith(int error) {
    errno = error;
    return -1;
}

int RestoreSinglePath(const char* path) {
    const SinglePathScope scope;
    errno = 0;
    const int result = selinux_restorecon(path, FLAGS);
    return result == 0 ? 0 : FailWith(errno != 0 ? errno : EIO);
}

int RestoreTree(const char* path, unsigned threads) {
    // The library's threads hand out the entries under one lock: more of them than processors only wait for it.
    const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
    walkError = 0;
    errno = 0;
    const int result =
        selinux_restorecon_parallel(path, FLAGS | SELINUX_RESTORECON_RECURSE, std::min(threads, processors));
    const int ownError = errno != 0 ? errno : EIO;
    // The library takes a directory that it cannot read for done, and only says so. What vanishes meanwhile is done.
    if (result == 0) {
        return walkError == 0 || walkError == ENOENT ? 0 : FailWith(walkError);
    }
    return FailWith(walkError != 0 ? walkError.load() : ownError);
}

int LabelLikeParent(const char* path) {
    const SinglePathScope scope;
    struct stat st {};
    if (lstat(path, &st) != 0) {
        return -1;
    }
    const CText copy(strdup(path));
    // NOLINTNEXTLINE(concurrency-mt-unsafe): dirname keeps to the text it is given, which is a private copy.
    const CText parent(copy ? realpath(dirname(copy.get()), nullptr) : nullptr);
    if (!parent) {
        return -1;
    }
    const CText label = ThePolicy().LabelOfDirectory(parent.get());
    if (!label) {
        return errno == ENOENT ? 0 : -1;
    }
    return lsetfilecon_raw(path, label.get());
}

}  // namespace

int Restorecon(const char* path) {
    std::shared_lock<std::shared_mutex> lock;
    if (const int error = ThePolicy().Acquire(lock); error != 0) {
        return FailWith(error);
    }
    const CText located = Located(path);
    return located ? RestoreSinglePath(located.get()) : -1;
}

int RestoreconRecurseParallel(const char* path, unsigned threads) {
    const std::lock_guard walk(walkMutex);
    std::shared_lock<std::shared_mutex> lock;
    if (const int error = ThePolicy().Acquire(lock); error != 0) {
        return FailWith(error);
    }
    const CText located = Located(path);
    return located ? RestoreTree(located.get(), threads) : -1;
}

int RestoreconFromParentDir(const char* path) {
    std::shared_lock<std::shared_mutex> lock;
    if (const int error = ThePolicy().Acquire(lock); error != 0) {
        errno = error;
        return -error;
    }
    if (LabelLikeParent(path) == 0) {
        return 0;
    }
    if (errno == 0) {
        errno = EIO;
    }
    return -errno;
}

}  // namespace TAVO::FileMigrateOrvane
