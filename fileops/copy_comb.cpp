#include "copy_comb.h"

#include <sys/stat.h>

#include <cerrno>

#include "copy.h"
#include "directory_stream.h"
#include "error_record.h"
#include "log.h"
#include "owner_mode.h"
#include "prepare_dir.h"
#include "remove.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Copies one file and gives it its mode, then its owner. A change of owner clears set-id bits, so a mode that
/// has them is applied once more.
int CopyFile(const std::string& src, const std::string& dst, const PermPara& perm, int& err, int recordKind) {
    if (DoCopy(src, dst, err, recordKind) != 0 || DoChMod(dst, perm.mode, err, recordKind) != 0 ||
        DoChOwn(dst, perm.uid, perm.gid, err, recordKind) != 0) {
        return -1;
    }
    const bool hasSetId = (perm.mode & (S_ISUID | S_ISGID)) != 0;
    return hasSetId ? DoChMod(dst, perm.mode, err, recordKind) : 0;
}

int CopyCombEntry(const Entry& src, std::string& dst, const PermPara& perm, int& err, int recordKind);

/// A child of a directory: a subdirectory is prepared before it is entered.
int CopyCombChild(const Entry& src, std::string& dst, const PermPara& perm, int& err, int recordKind) {
    if (src.type == DT_DIR && DoPrepareDir({dst, perm.uid, perm.gid, perm.mode, 0}, err, recordKind) != 0) {
        return -1;
    }
    return CopyCombEntry(src, dst, perm, err, recordKind);
}

int CopyCombDirectory(const Entry& src, std::string& dst, const PermPara& perm, int& err, int recordKind) {
    DirectoryStream stream = DirectoryStream::Open(src);
    if (!stream) {
        err = errno;
        LogError({"open dir %{public}s failed, errno %{public}d", "CopyCombRecurse"}, src.path, err);
        RecordNormalErr("OPEN_COPYCOMBRECURSE", src.path, err, recordKind);
        return -1;
    }
    const int result = VisitFilesAndDirectories(
        stream, src.path, dst, [&](const Entry& child) { return CopyCombChild(child, dst, perm, err, recordKind); });
    stream.Close();
    // Always, with whatever is still in it.
    return Remove(src.path, err, recordKind) == 0 ? result : -1;
}

int CopyCombEntry(const Entry& src, std::string& dst, const PermPara& perm, int& err, int recordKind) {
    if (TakeForDirectory(src, err)) {
        return CopyCombDirectory(src, dst, perm, err, recordKind);
    }
    const int copied = CopyFile(src.path, dst, perm, err, recordKind);
    // Always, copied or not.
    return DoUnlink(src.dirFd, src.name, src.path, err, recordKind) == 0 ? copied : -1;
}

}  // namespace

int CopyCombRecurse(const std::string& src, const std::string& dst, const PermPara& perm, int& err, int recordKind) {
    std::string srcText = src;
    std::string dstText = dst;
    return CopyCombEntry(TopEntry(src, srcText), dstText, perm, err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
