#include "record.h"

#include <libgen.h>

#include "record_format.h"

namespace TAVO::FileMigrateOrvane::Reader {

std::string ParentOf(std::string_view path) {
    std::string copy(path);
    return dirname(copy.data());  // NOLINT(concurrency-mt-unsafe): it works on the copy
}

bool HasCutPath(const Record& record) {
    return IsCutPath(record.src) || IsCutPath(record.dst);
}

std::string_view RoleOf(const Record& record, std::string_view path) {
    const bool hasTwoPaths = !record.dst.empty();
    if (path == record.src) {
        return hasTwoPaths ? "source" : "object";
    }
    if (hasTwoPaths && path == record.dst) {
        return "destination";
    }
    const bool isSourceParent = path == ParentOf(record.src);
    const bool isDestinationParent = hasTwoPaths && path == ParentOf(record.dst);
    if ((isSourceParent || isDestinationParent) && HasCutPath(record)) {
        return "directory above";
    }
    if (isSourceParent && (isDestinationParent || !hasTwoPaths)) {
        return "parent directory";
    }
    return isSourceParent ? "source's parent directory" : isDestinationParent ? "destination's parent directory" : "";
}

}  // namespace TAVO::FileMigrateOrvane::Reader
