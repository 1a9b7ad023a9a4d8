#include "path_helpers.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "directory_stream.h"
#include "error_record.h"
#include "log.h"
#include "record_file.h"

namespace TAVO::FileMigrateOrvane {

std::string DirName(const std::string& path) {
    std::string copy = path;      // dirname() may write into its argument
    return dirname(copy.data());  // NOLINT(concurrency-mt-unsafe): the copy is private
}

int IsPathExist(const std::string& path, int& err, int recordKind) {
    return IsPathExist(AT_FDCWD, path.c_str(), path, err, recordKind);
}

int IsPathExist(int dirFd, const char* name, const std::string& path, int& err, int recordKind) {
    if (faccessat(dirFd, name, F_OK, 0) == 0) {
        return 1;
    }
    if (errno == ENOENT) {
        return 0;
    }
    err = errno;
    RecordNormalErr("ISEXIST", path, err, recordKind);
    LogError("access %{public}s failed, errno=%{public}d", path, err);
    return -1;
}

int IsDir(const std::string& path, int& err, int recordKind) {
    return IsDir(AT_FDCWD, path.c_str(), path, err, recordKind);
}

int IsDir(int dirFd, const char* name, const std::string& path, int& err, int recordKind) {
    struct stat st {};
    if (fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        err = errno;
        RecordErrForPath("ISDIR", path, err, recordKind);
        LogError("lstat %{public}s failed, errno=%{public}d", path, err);
        return -1;
    }
    return S_ISDIR(st.st_mode) ? 1 : 0;
}

int ListDir(const std::string& path, StringList& entries, int& err, bool withType, int recordKind) {
    entries.Clear();
    DirectoryStream stream = DirectoryStream::OpenFollowing(path);
    if (!stream) {
        err = errno;
        if (err != ENOENT) {
            RecordNormalErr("LISTDIR_OPEN", path, err, recordKind);
        }
        LogError("failed to open dir %{public}s, errno=%{public}d", path, err);
        return -1;
    }
    while (const dirent* entry = stream.Next()) {
        const char* type = entry->d_type == DT_DIR ? ":1" : ":0";
        entries.Add(entry->d_name, withType ? type : "");
    }
    return 0;
}

int GetExistedPath(const std::string& path, std::string& existedPath, int& err, int recordKind) {
    std::string current = path;
    while (IsPathExist(current, err, RECORD_KIND_NONE) == 0) {
        current = DirName(current);
    }
    if (err != 0) {
        RecordErrForPath("GET_EXISTED_PATH", path, err, recordKind);
        return -1;
    }
    existedPath = current;
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
