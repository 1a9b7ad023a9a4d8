#include "commands.h"
#include "path_helpers.h"
#include "record_format.h"
#include "space.h"

namespace TAVO::FileMigrateOrvane {

std::int32_t ProcessIsExistCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    return IsPathExist(msg->src, info.errCode, RECORD_KIND_AB);
}

std::int32_t ProcessIsDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    return IsDir(msg->src, info.errCode, RECORD_KIND_AB);
}

std::int32_t ProcessListDirCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    return ListDir(msg->src, info.strs, info.errCode, /*withType=*/true, RECORD_KIND_AB);
}

std::int32_t ProcessExistedPathCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    std::string existedPath;
    if (GetExistedPath(msg->src, existedPath, info.errCode, RECORD_KIND_AB) != 0) {
        return -1;
    }
    info.strs = {existedPath};
    return 0;
}

std::int32_t ProcessUsedSpaceCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    return GetUsedSpaceInKB(msg->src, info.errCode, RECORD_KIND_AB);
}

std::int32_t ProcessMaxSizeCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    return GetMaxSizeInKB(msg->src, info.errCode, RECORD_KIND_AB);
}

}  // namespace TAVO::FileMigrateOrvane
