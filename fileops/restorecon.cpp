#include "restorecon.h"

#include <cerrno>

#include "failures.h"
#include "label_walk.h"
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
            (void)Fail(Step::Restorecon, path, errno, {err, recordKind});
            return -1;
        }
        LogRoutine(LogLevel::Info, "Restorecon %{public}s suc", path);
        return 0;
    }
    if (recurseOpt == RECURSE_ALL) {
        if (RestoreconRecurseParallel(path.c_str(), WALK_THREADS) != 0) {
            (void)Fail(Step::RestoreconRecurse, path, errno, {err, recordKind});
            return -1;
        }
        LogRoutine(LogLevel::Info, "RestoreconRecurseParallel %{public}s suc", path);
        return 0;
    }
    return ResultOf(RefuseOption(Operation::RestoreCon, path, recurseOpt, {err, recordKind}));
}

int RestoreConFromParent(const std::string& path, int& err, int recordKind) {
    if (const int ret = RestoreconFromParentDir(path.c_str()); ret != 0) {
        (void)FailRestoreconFromParent(path, ret, errno, {err, recordKind});
        return -1;
    }
    LogRoutine(LogLevel::Info, "RestoreconFromParentDir %{public}s suc", path);
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
