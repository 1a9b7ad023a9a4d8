#include "copy.h"

#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>

#include "directory_stream.h"
#include "error_record.h"
#include "log.h"
#include "prepare_dir.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// The error-code form of copy still throws: when memory runs out, and when reading a directory fails half-way.
std::error_code CopyAll(const std::string& src, const std::string& dst) {
    constexpr auto options = std::filesystem::copy_options::overwrite_existing |
                             std::filesystem::copy_options::recursive | std::filesystem::copy_options::skip_symlinks;
    std::error_code ec;
    try {
        std::filesystem::copy(src, dst, options, ec);
    } catch (const std::filesystem::filesystem_error& failure) {
        ec = failure.code();
    } catch (const std::bad_alloc&) {
        ec = std::make_error_code(std::errc::not_enough_memory);
    }
    return ec;
}

/// @param dst  path of the destination; grown and shrunk like the entry's own
int TryCopyEntry(const Entry& src, std::string& dst, int& err, int recordKind);

int TryCopyChild(const Entry& src, std::string& dst, int& err, int recordKind) {
    if (src.type == DT_DIR && DoMkDir(dst, err, recordKind) != 0) {
        return -1;
    }
    return TryCopyEntry(src, dst, err, recordKind);
}

int TryCopyEntry(const Entry& src, std::string& dst, int& err, int recordKind) {
    if (!TakeForDirectory(src, err)) {
        return DoCopy(src.path, dst, err, recordKind);
    }
    DirectoryStream stream = DirectoryStream::Open(src);
    if (!stream) {
        err = errno;
        LogError({"open dir %{public}s failed, errno %{public}d", "TryCopy"}, src.path, err);
        RecordNormalErr("OPEN_TRYCOPY", src.path, err, recordKind);
        return -1;
    }
    return VisitFilesAndDirectories(stream, src.path, dst,
                                    [&](const Entry& child) { return TryCopyChild(child, dst, err, recordKind); });
}

}  // namespace

int DoCopy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    const std::error_code ec = CopyAll(src, dst);
    if (ec) {
        err = ec.value();
        LogError("copy %{public}s to %{public}s failed, errno=%{public}d", src, dst, err);
        RecordCopyErr(src, dst, err, recordKind);
        return -1;
    }
    return 0;
}

int Copy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    if (DoCopy(src, dst, err, recordKind) == 0) {
        return 0;
    }
    LogError("orig copy meet err, try skip err");
    return TryCopy(src, dst, err, recordKind);
}

int TryCopy(const std::string& src, const std::string& dst, int& err, int recordKind) {
    std::string srcText = src;
    std::string dstText = dst;
    return TryCopyEntry(TopEntry(src, srcText), dstText, err, recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
