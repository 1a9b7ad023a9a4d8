#include <cerrno>
#include <string>

#include "commands.h"
#include "copy.h"
#include "directory_stream.h"
#include "error_record.h"
#include "log.h"
#include "move.h"
#include "path_helpers.h"
#include "record_format.h"
#include "request_text.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Reports that the source directory could not be opened or not be read to its end.
std::int32_t OpenFailed(const std::string& src, int error, extraInfo& info) {
    info.errCode = error;
    const bool isAbsent = error == ENOENT;
    if (!isAbsent) {
        RecordNormalErr(RecordTypeName("OPEN_MIGRATESUB"), src, error, RECORD_KIND_AB);
    }
    LogFailure({RecordTypeName("OPEN_MIGRATESUB"), error, src},
               {"failed to open dir %{public}s, errno=%{public}d", "ProcessMigrateSubCmd"}, src, error);
    return isAbsent ? SOURCE_ABSENT : -1;
}

}  // namespace

std::int32_t ProcessMigrateSubCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    std::string src = msg->src;
    std::string dst = msg->dst;
    DirectoryStream stream = DirectoryStream::OpenTop(src);
    if (!stream) {
        return OpenFailed(src, errno, info);
    }
    const auto carry = IsCommand(msg, Command::CopySub) ? CopyChild : MoveChild;
    std::int32_t result = 0;
    while (const dirent* child = stream.Next()) {
        const ChildPath joinedSrc(src, child->d_name);
        const ChildPath joinedDst(dst, child->d_name);
        if (carry(src, dst, info.errCode, RECORD_KIND_AB) != 0) {
            result = -1;
        }
    }
    return stream.ReadError() == 0 ? result : OpenFailed(src, stream.ReadError(), info);
}

std::int32_t ProcessMigrateAllCmd(const FileMigrateRcvMsg* msg, extraInfo& info) {
    if (IsPathExist(msg->src, info.errCode, RECORD_KIND_NONE) == 0) {
        LogFailure({"SOURCE_ABSENT", ENOENT, msg->src, msg->dst}, "src %{public}s not exist", msg->src);
        return SOURCE_ABSENT;
    }
    const auto carry = IsCommand(msg, Command::CopyAll) ? Copy : Move;
    return carry(msg->src, msg->dst, info.errCode, RECORD_KIND_AB) == 0 ? 0 : -1;
}

}  // namespace TAVO::FileMigrateOrvane
