#include "prepare_dir.h"

#include <sys/stat.h>

#include <cerrno>

#include "error_record.h"
#include "log.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "record_file.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr unsigned int CREATE_MODE = 0700;

/// Calls `step` for each ancestor written in the path, the outermost first, and then for the path itself; stops at
/// the first failure.
template <class Step>
int ForEachAncestor(const std::string& path, Step step) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        if (step(path.substr(0, slash)) != 0) {
            return -1;
        }
    }
    return step(path);
}

}  // namespace

int DoMkDir(const std::string& path, int& err, int recordKind) {
    if (mkdir(path.c_str(), CREATE_MODE) == 0 || errno == EEXIST) {
        return 0;
    }
    err = errno;
    LogError("mkdir %{public}s %{public}o failed, errno=%{public}d", path, CREATE_MODE, err);
    RecordMkdirErr(path, CREATE_MODE, err, recordKind);
    return -1;
}

int MkDir(const std::string& path, int recurseOpt, int& err, int recordKind) {
    if (IsPathExist(path, err, RECORD_KIND_NONE) == 1) {
        LogInfo("dir %{public}s already exists", path);
        return 0;
    }
    if (recurseOpt == RECURSE_ALL) {
        const auto step = [&](const std::string& ancestor) { return DoMkDir(ancestor, err, recordKind); };
        if (ForEachAncestor(path, step) != 0) {
            return -1;
        }
        LogInfo("DoMkDirRecurse %{public}s suc", path);
        return 0;
    }
    if (recurseOpt == RECURSE_NONE) {
        if (DoMkDir(path, err, recordKind) != 0) {
            return -1;
        }
        LogInfo("DoMkDir %{public}s suc", path);
        return 0;
    }
    LogError("Unexpected recurseOpt:%{public}d, not mkdir %{public}s", recurseOpt, path);
    err = EINVAL;
    RecordRecurseOptErr("INVALID_RECURSEOPT_MKDIR", path, recurseOpt, err, recordKind);
    return -1;
}

int PrepareDir(const PathPara& para, int& err, int recordKind) {
    if (IsPathExist(para.path, err, recordKind) == 1) {
        LogInfo("dir %{public}s already exists", para.path);
        return 0;
    }
    if (para.recurseOpt == RECURSE_ALL) {
        return ForEachAncestor(para.path, [&](const std::string& ancestor) {
            return DoPrepareDir({ancestor, para.uid, para.gid, para.mode, 0}, err, recordKind);
        });
    }
    if (para.recurseOpt == RECURSE_NONE) {
        return DoPrepareDir(para, err, recordKind);
    }
    LogError("Unexpected recurseOpt:%{public}d, not prepare %{public}s", para.recurseOpt, para.path);
    err = EINVAL;
    RecordRecurseOptErr("INVALID_RECURSEOPT_PREPAREDIR", para.path, para.recurseOpt, err, recordKind);
    return -1;
}

int DoPrepareDir(const PathPara& para, int& err, int recordKind) {
    if (IsPathExist(para.path, err, recordKind) == 1) {
        return 0;
    }
    if (DoMkDir(para.path, err, recordKind) != 0 || DoChMod(para.path, para.mode, err, recordKind) != 0 ||
        DoChOwn(para.path, para.uid, para.gid, err, recordKind) != 0) {
        LogError("DoPrepareDir %{public}s failed: %{public}u, %{public}u, %{public}o", para.path, para.uid, para.gid,
                 para.mode);
        return -1;
    }
    LogInfo("DoPrepareDir %{public}s suc: %{public}u, %{public}u, %{public}o", para.path, para.uid, para.gid,
            para.mode);
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
