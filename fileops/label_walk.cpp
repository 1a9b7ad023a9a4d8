#include "label_walk.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <string>
#include <utility>

#include "directory_stream.h"
#include "failures.h"
#include "labelled_object.h"
#include "log.h"
#include "record_file.h"
#include "tree_walk.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Labels each directory before its contents. Continues after an entry that fails.
class LabelWalk final : public TreeWalk {
public:
    /// @param top  the path of the tree, without links; "" for "/"
    LabelWalk(const LabelRules& prescribed, const std::string& top)
        : TreeWalk(OnFailure::Continue, Threads::Many), rules(prescribed), topLength(top.length()) {}

    int Visit(const Entry& entry, const Report& report) override {
        if (entry.path.length() >= PATH_MAX) {
            return Failed(entry.path, ENAMETOOLONG);
        }
        LabelledObject object = LabelledObject::Open(entry.dirFd, entry.name);
        return object ? Restore(std::move(object), entry.path, report) : Failed(entry.path, errno);
    }

    /// @param path  the object's; "" for "/"
    int Restore(LabelledObject object, std::string& path, const Report& report) {
        bool isToEnter = object.IsDirectory();
        const int error = RestoreOne(object, path, isToEnter);
        if (!isToEnter) {
            return error;
        }
        DirectoryStream stream = DirectoryStream::Open({object.Fd(), ".", DT_DIR, path});
        object = {};  // one descriptor for each level is enough
        if (!stream) {
            return Failed(path, errno);
        }
        const int result = VisitChildren(stream, path, report);
        const int last = stream.ReadError() != 0 ? Failed(path, stream.ReadError()) : result;
        return last != 0 ? last : error;
    }

private:
    /// @param isToEnter  whether it is a directory; cleared if the walk is not to go below it
    [[gnu::noinline]] int RestoreOne(const LabelledObject& object, const std::string& path, bool& isToEnter) const {
        if (isToEnter && object.IsMountPoint()) {
            const bool holdsLabels = object.CanHoldLabel();
            isToEnter = holdsLabels && !IsInsideItself(object, path);
            if (!isToEnter) {
                return holdsLabels ? Failed(path, ELOOP) : 0;
            }
        }
        const int error = object.SetPrescribedLabel(rules, TextOf(path));
        return error == 0 ? 0 : Failed(path, error);
    }

    /// Whether a bind mount makes the directory one of its own ancestors. Its contents would then get labels for two
    /// paths.
    [[nodiscard]] bool IsInsideItself(const LabelledObject& directory, const std::string& path) const {
        struct stat own {
        }, above{};
        std::size_t end = fstat(directory.Fd(), &own) == 0 ? path.length() : 0;
        while (end > topLength) {
            end = path.rfind('/', end - 1);
            if (stat((path.substr(0, end) + '/').c_str(), &above) == 0 && IsSame(above, own)) {
                return true;
            }
        }
        return false;
    }

    /// Logs a failure. An object that was removed needs no label. @return 0 or `error`
    static int Failed(const std::string& path, int error) {
        if (error == ENOENT) {
            return 0;
        }
        LogError("restore label of %{public}s failed, errno=%{public}d", TextOf(path), error);
        return error;
    }

    static const char* TextOf(const std::string& path) { return path.empty() ? "/" : path.c_str(); }

    const LabelRules& rules;
    const std::size_t topLength;
};

int RestoreTree(const char* path) {
    LabelTarget target = LabelTarget::Open(path);
    if (!target.object) {
        return errno;
    }
    if (target.path == "/") {
        target.path.clear();
    }
    int err = 0;  // each failure is in the result
    return LabelWalk(*target.rules, target.path)
        .Restore(std::move(target.object), target.path, {err, RECORD_KIND_NONE});
}

}  // namespace

int RestoreconRecurseParallel(const char* path, unsigned /*threads*/) {
    errno = RestoreTree(path);
    return errno == 0 ? 0 : -1;
}

}  // namespace TAVO::FileMigrateOrvane
