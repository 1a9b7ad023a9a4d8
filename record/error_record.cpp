#include "error_record.h"

#include <cerrno>
#include <sstream>
#include <utility>

#include "concat.h"
#include "kmsg_dump.h"
#include "path_helpers.h"
#include "record_file.h"
#include "record_format.h"
#include "snapshot.h"

namespace TAVO::FileMigrateOrvane {
namespace {

std::string Octal(unsigned int mode) {
    std::ostringstream text;
    text << std::oct << mode;
    return text.str();
}

/// The path as it is in a record. No system call accepts a path that has to be cut, so its snapshots only say so.
std::string CutPath(const std::string& path) {
    if (path.size() < RECORD_PATH_LIMIT) {
        return path;
    }
    return path.substr(0, RECORD_PATH_LIMIT - RECORD_CUT_MARK.size()).append(RECORD_CUT_MARK);
}

std::string ParentOf(const std::string& path) {
    return DirName(CutPath(path));
}

/// A record in the making: the information line, then snapshots in the order of the calls.
class RecordText {
public:
    explicit RecordText(ErrInfo errInfo) : info(std::move(errInfo)), text(GetErrInfoRecord(info)) {}

    RecordText& StatAndXattr(const std::string& path) {
        const std::string shown = CutPath(path);
        return Fragment(GetStat(shown)).Fragment(GetXattr(shown));
    }
    RecordText& StatXattrAndFlags(const std::string& path) {
        return StatAndXattr(path).Fragment(GetInodeFlag(CutPath(path)));
    }
    RecordText& Process() { return Fragment(GetProcStat()); }
    RecordText& LabelResult(int ret) {
        labelResult = ret;
        return Fragment(Concat({RecordKey::LABEL_RESULT, std::to_string(ret), RecordKey::END}));
    }

    /// Writes the record, then the kernel-log dump if the record calls for one.
    void WriteTo(int recordKind) const {
        WriteRecordErrToFile(text, recordKind);
        if (HasKernelLogDump(info.type, info.errNo, labelResult)) {
            DumpKmsg(info.type);
        }
    }

private:
    RecordText& Fragment(const std::string& fragment) {
        text += fragment;
        return *this;
    }

    ErrInfo info;
    std::string text;
    int labelResult = 0;
};

/// A record without snapshots.
void RecordLine(ErrInfo info, int recordKind) {
    if (recordKind != RECORD_KIND_NONE) {
        RecordText(std::move(info)).WriteTo(recordKind);
    }
}

}  // namespace

std::string GetErrInfoRecord(ErrInfo& info) {
    using namespace RecordKey;
    return Concat({TYPE, info.type, SRC, info.src, DST, info.dst, USER, info.user, GROUP, info.group, PERM, info.perm,
                   RECURSE_OPT, info.recurseOpt, ERRNO, std::to_string(info.errNo), TIMES, GetCurrentTimeStr(), END});
}

void RecordCopyErr(const std::string& src, const std::string& dst, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = RecordTypeName("COPY"), .src = CutPath(src), .dst = CutPath(dst), .errNo = errNo})
        .StatXattrAndFlags(src)
        .StatXattrAndFlags(dst)
        .StatXattrAndFlags(ParentOf(dst))
        .Process()
        .WriteTo(recordKind);
}

void RecordMoveErr(const std::string& src, const std::string& dst, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = RecordTypeName("MOVE"), .src = CutPath(src), .dst = CutPath(dst), .errNo = errNo})
        .StatXattrAndFlags(src)
        .StatXattrAndFlags(dst)
        .StatXattrAndFlags(ParentOf(src))
        .StatXattrAndFlags(ParentOf(dst))
        .Process()
        .WriteTo(recordKind);
}

void RecordMkdirErr(const std::string& path, unsigned int mode, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = RecordTypeName("MKDIR"), .src = CutPath(path), .perm = Octal(mode), .errNo = errNo})
        .StatAndXattr(ParentOf(path))
        .WriteTo(recordKind);
}

void RecordChownErr(const std::string& path, unsigned int uid, unsigned int gid, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = RecordTypeName("CHOWN"),
                .src = CutPath(path),
                .user = std::to_string(uid),
                .group = std::to_string(gid),
                .errNo = errNo})
        .StatXattrAndFlags(path)
        .Process()
        .WriteTo(recordKind);
}

void RecordChmodErr(const std::string& path, unsigned int mode, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = RecordTypeName("CHMOD"), .src = CutPath(path), .perm = Octal(mode), .errNo = errNo})
        .StatAndXattr(path)
        .WriteTo(recordKind);
}

void RecordRestoreConFromParentErr(const std::string& path, int ret, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = RecordTypeName("RESTORECON_FROMPARENT"), .src = CutPath(path), .errNo = errNo})
        .LabelResult(ret)
        .StatAndXattr(path)
        .StatAndXattr(ParentOf(path))
        .WriteTo(recordKind);
}

void RecordNormalErr(const std::string& code, const std::string& path, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = code, .src = CutPath(path), .errNo = errNo}).StatAndXattr(path).WriteTo(recordKind);
}

void RecordErrForPath(const std::string& code, const std::string& path, int errNo, int recordKind) {
    RecordLine({.type = code, .src = CutPath(path), .errNo = errNo}, recordKind);
}

void RecordRecurseOptErr(const std::string& code, const std::string& path, int recurseOpt, int errNo, int recordKind) {
    RecordLine({.type = code, .src = CutPath(path), .recurseOpt = std::to_string(recurseOpt), .errNo = errNo},
               recordKind);
}

void RecordModErr(const std::string& code, const std::string& perm, int errNo, int recordKind) {
    RecordLine({.type = code, .perm = perm, .errNo = errNo}, recordKind);
}

void RecordEmptyErr(const std::string& code, const FileMigrateRcvMsg* request, int errNo, int recordKind) {
    RecordLine({.type = code,
                .src = request->src,
                .user = request->user,
                .group = request->group,
                .perm = request->perm,
                .recurseOpt = std::to_string(request->recurseOpt),
                .errNo = errNo},
               recordKind);
}

void RecordUidErr(const char* user, int errNo, int recordKind, const std::string& code) {
    RecordLine({.type = UID_TYPE_PREFIX + code, .user = user == nullptr ? "" : user, .errNo = errNo}, recordKind);
}

void RecordGidErr(const char* group, int errNo, int recordKind, const std::string& code) {
    RecordLine({.type = GID_TYPE_PREFIX + code, .group = group == nullptr ? "" : group, .errNo = errNo}, recordKind);
}

void RecordHandleCmdErr(const std::string& type, const std::string& key, const std::string& value, int recordKind) {
    using namespace RecordKey;
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    WriteRecordErrToFile(Concat({TYPE, type, ",", key, ":", value, TIMES, GetCurrentTimeStr(), END}), recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
