#include "label_rules.h"

#include <selinux/label.h>
#include <selinux/selinux.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Where the rules come from: the configuration names the policy, and the policy's file_contexts may have any of these
/// endings.
constexpr const char* CONFIGURATION = "/etc/selinux/config";
constexpr std::array<const char*, 8> RULE_FILES = {"",          ".bin",          ".local", ".local.bin",
                                                   ".homedirs", ".homedirs.bin", ".subs",  ".subs_dist"};

/// Device, inode, size and time of the last change; all zero if there is no such file. They change whenever the content
/// of the file changes.
using FileStamp = std::array<std::int64_t, 5>;
using RuleStamps = std::array<FileStamp, RULE_FILES.size()>;

FileStamp StampOf(const std::string& path) {
    struct stat st = {};
    if (stat(path.c_str(), &st) != 0) {
        return {};
    }
    return {static_cast<std::int64_t>(st.st_dev), static_cast<std::int64_t>(st.st_ino), st.st_size, st.st_ctim.tv_sec,
            st.st_ctim.tv_nsec};
}

RuleStamps StampsOfRules() {
    RuleStamps stamps{};
    const char* base = selinux_file_context_path();
    for (std::size_t i = 0; base != nullptr && i < stamps.size(); ++i) {
        stamps[i] = StampOf(std::string(base) + RULE_FILES[i]);
    }
    return stamps;
}

__attribute__((format(printf, 2, 3))) int PrintLibraryMessage(int type, const char* format, ...) {
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

/// The rules that were read last, and the state of the files that they were read from.
class Policy {
public:
    std::shared_ptr<const LabelRules> Current() {
        const std::lock_guard lock(mutex);
        if (rules == nullptr || StampOf(CONFIGURATION) != configuration || StampsOfRules() != ruleFiles) {
            Read();
        }
        return rules;
    }

private:
    void Read() {
        selinux_callback callback{};
        callback.func_log = PrintLibraryMessage;
        selinux_set_callback(SELINUX_CB_LOG, callback);
        // The stamps are taken before the files are read, so that the next call notices a change in between.
        configuration = StampOf(CONFIGURATION);
        selinux_reset_config();
        ruleFiles = StampsOfRules();
        rules.reset();
        if (ruleFiles[0] == FileStamp{} && ruleFiles[1] == FileStamp{}) {
            errno = EOPNOTSUPP;
            return;
        }
        errno = 0;
        if (LabelRules::Handle opened(selabel_open(SELABEL_CTX_FILE, nullptr, 0)); opened != nullptr) {
            rules = std::make_shared<const LabelRules>(std::move(opened));
        } else if (errno == 0) {
            errno = EINVAL;
        }
    }

    std::mutex mutex;  ///< guards the members below and the configuration that libselinux has cached
    std::shared_ptr<const LabelRules> rules;
    FileStamp configuration{};
    RuleStamps ruleFiles{};
};

}  // namespace

std::shared_ptr<const LabelRules> LabelRules::Current() {
    static Policy& policy = *new Policy;  // never destroyed: a worker may still use it when the process exits
    return policy.Current();
}

LabelText LabelRules::Lookup(const char* path, mode_t mode) const {
    char* label = nullptr;
    errno = 0;
    if (selabel_lookup_raw(handle.get(), &label, path, static_cast<int>(mode)) != 0 && errno == 0) {
        errno = EIO;
    }
    return LabelText(label);
}

void LabelRules::Close::operator()(selabel_handle* opened) const {
    selabel_close(opened);
}

}  // namespace TAVO::FileMigrateOrvane
