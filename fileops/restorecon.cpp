#include "restorecon.h"

#include <cerrno>

#include "error_record.h"
#include "log.h"
#include "path_para.h"
#include "security_label.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr unsigned int WALK_THREADS = 16;

}  // namespace

int RestoreCon(const std::string& path, const int& recurseOpt, int& err, int recordKind) {
    if (recurseOpt == RECURSE_NONE) {
        if (Restorecon(path.c_str()) != 0) {
            err = errno;
            LogError("Restorecon %{public}s failed, errno=%{public}d", path, err);
            RecordNormalErr("RESTORECON_NORECURSE", path, err, recordKind);
            return -1;
        }
        LogInfo("Restorecon %{public}s suc", path);
        return 0;
    }
    if (recurseOpt == RECURSE_ALL) {
        if (RestoreconRecurseParallel(path.c_str(), WALK_THREADS) != 0) {
            err = errno;
            LogError("RestoreconRecurseParallel %{public}s failed, errno=%{public}d", path, err);
            RecordNormalErr("RESTORECONRECURSEPARALLEL", path, err, recordKind);
            return -1;
        }
        LogInfo("RestoreconRecurseParallel %{public}s suc", path);
        return 0;
    }
    LogError("Unexpected recurseOpt:%{public}d, not restorecon %{public}s", recurseOpt, path);
    err = EINVAL;
    if (recurseOpt != 0) {
        RecordRecurseOptErr("INVALID_RECURSEOPT_RESTORECON", path, recurseOpt, err, recordKind);
    }
    return -1;
}

int RestoreConFromParent(const std::string& path, int& err, int recordKind) {
    const int ret = RestoreconFromParentDir(path.c_str());
    if (ret != 0) {
        err = errno;
        LogError("RestoreconFromParentDir %{public}s failed, ret=%{public}d, errno=%{public}d", path, ret, err);
        RecordRestoreConFromParentErr(path, ret, err, recordKind);
        return -1;
    }
    LogInfo("RestoreconFromParentDir %{public}s suc", path);
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
