#include "path_helpers.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "directory_stream.h"
#include "error_record.h"
#include "record_file.h"
#include "unique_fd.h"

namespace TAVO::FileMigrateOrvane {

std::string DirName(const std::string& path) {
    std::string copy = path;      // dirname() may write into its argument
    return dirname(copy.data());  // NOLINT(concurrency-mt-unsafe): the copy is private
}

int IsPathExist(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    return IsPathExist(TopEntry(path, text), {err, recordKind});
}

int IsPathExist(const Entry& entry, const Report& report) {
    if (faccessat(entry.dirFd, entry.name, F_OK, 0) == 0) {
        return 1;
    }
    if (errno == ENOENT) {
        return 0;
    }
    return ResultOf(Fail(Step::Access, entry.path, errno, report));
}

int IsDir(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    return IsDir(TopEntry(path, text), {err, recordKind});
}

int IsDir(const Entry& entry, const Report& report) {
    struct stat st {};
    if (const int error = Lstat(entry, st); error != 0) {
        return ResultOf(Fail(Step::LstatIsDir, entry.path, error, report));
    }
    return S_ISDIR(st.st_mode) ? 1 : 0;
}

bool TakeForDirectory(const Entry& entry, const Report& report) {
    return entry.type == DT_UNKNOWN ? IsDir(entry, report) != 0 : entry.type == DT_DIR;
}

int ListDir(const std::string& path, StringList& entries, int& err, bool withType, int recordKind) {
    entries.Clear();
    DirectoryStream stream = DirectoryStream::OpenFollowing(path);
    if (!stream) {
        return ResultOf(FailListDir(path, errno, {err, recordKind}));
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
        RecordErrForPath(RecordTypeName("GET_EXISTED_PATH"), path, err, recordKind);
        return -1;
    }
    existedPath = current;
    return 0;
}

int FindOntoItself(const std::string& src, const std::string& dst) {
    constexpr int ancestor = O_PATH | O_DIRECTORY | O_CLOEXEC;
    struct stat source {};
    if (lstat(src.c_str(), &source) != 0) {
        return 0;
    }
    std::string path = dst;
    UniqueFd directory(open(path.c_str(), ancestor));
    // For a missing path, a dangling link or a link loop, start from the directory that holds the name.
    while (!directory && (IsNotFound(errno) || errno == ELOOP) && DirName(path) != path) {
        path = DirName(path);
        directory = UniqueFd(open(path.c_str(), ancestor));
    }
    struct stat here {};
    struct stat below {};
    while (directory && fstat(directory.Get(), &here) == 0 && !IsSame(here, below)) {
        if (IsSame(here, source)) {
            return below.st_ino == 0 && path == dst ? EEXIST : EINVAL;
        }
        below = here;
        directory = UniqueFd(openat(directory.Get(), "..", ancestor));
    }
    return 0;
}

}  // namespace TAVO::FileMigrateOrvane
