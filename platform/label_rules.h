// The labelling rules of the installed SELinux policy, read through libselinux. Its messages go to the log.
#pragma once

#include <sys/types.h>

#include <cstdlib>
#include <memory>
#include <utility>

struct selabel_handle;

namespace TAVO::FileMigrateOrvane {

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using LabelText = std::unique_ptr<char, FreeText>;

/// One reading of the rules. It does not change, and any number of threads may use it at once: libselinux locks each
/// rule while it matches a path against it.
class LabelRules {
public:
    /// The rules as the policy's files state them now. They are read at the first call, and again when a file has
    /// changed since; callers that still use the older rules keep them. May be called from any thread.
    /// @return null with the cause in errno: EOPNOTSUPP if no policy is installed
    [[nodiscard]] static std::shared_ptr<const LabelRules> Current();

    struct Close {
        void operator()(selabel_handle* opened) const;
    };
    using Handle = std::unique_ptr<selabel_handle, Close>;
    explicit LabelRules(Handle opened) : handle(std::move(opened)) {}

    /// The label that the rules prescribe for a path.
    /// @param mode  the type of the object (the S_IFMT bits): some rules apply to directories only, for instance
    /// @return null with the cause in errno: ENOENT if the rules prescribe no label
    [[nodiscard]] LabelText Lookup(const char* path, mode_t mode) const;

private:
    Handle handle;
};

}  // namespace TAVO::FileMigrateOrvane
