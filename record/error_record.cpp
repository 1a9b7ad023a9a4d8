#include "error_record.h"

#include <cerrno>
#include <sstream>
#include <utility>

#include "kmsg_dump.h"
#include "path_helpers.h"
#include "record_file.h"
#include "snapshot.h"

namespace TAVO::FileMigrateOrvane {
namespace {

// Results of the label library for which the kernel log tells more.
constexpr int LABEL_REFUSED = -13;
constexpr int LABEL_FAULT = -14;

std::string Octal(unsigned int mode) {
    std::ostringstream text;
    text << std::oct << mode;
    return text.str();
}

bool IsInvalidOrNotPermitted(int errNo) {
    return errNo == EINVAL || errNo == EPERM;
}

/// A record in the making: the information line, then snapshots in the order of the calls.
class RecordText {
public:
    explicit RecordText(ErrInfo info) : text(GetErrInfoRecord(info)) {}

    RecordText& Fragment(const std::string& fragment) {
        text += fragment;
        return *this;
    }
    RecordText& StatAndXattr(const std::string& path) { return Fragment(GetStat(path)).Fragment(GetXattr(path)); }
    RecordText& AllOf(const std::string& path) { return StatAndXattr(path).Fragment(GetInodeFlag(path)); }
    RecordText& Process() { return Fragment(GetProcStat()); }

    void WriteTo(int recordKind) const { WriteRecordErrToFile(text, recordKind); }

private:
    std::string text;
};

/// A record without snapshots.
void RecordLine(ErrInfo info, int recordKind) {
    if (recordKind != RECORD_KIND_NONE) {
        RecordText(std::move(info)).WriteTo(recordKind);
    }
}

}  // namespace

std::string GetErrInfoRecord(ErrInfo& info) {
    return "type:" + info.type + ",src:" + info.src + ",dst:" + info.dst + ",user:" + info.user +
           ",group:" + info.group + ",perm:" + info.perm + ",recurseOpt:" + info.recurseOpt +
           ",errno:" + std::to_string(info.errNo) + ",times:" + GetCurrentTimeStr() + ";";
}

void RecordCopyErr(const std::string& src, const std::string& dst, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = "COPY", .src = src, .dst = dst, .errNo = errNo})
        .AllOf(src)
        .AllOf(dst)
        .AllOf(DirName(dst))
        .Process()
        .WriteTo(recordKind);
    if (IsInvalidOrNotPermitted(errNo)) {
        DumpKmsg("COPY");
    }
}

void RecordMoveErr(const std::string& src, const std::string& dst, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = "MOVE", .src = src, .dst = dst, .errNo = errNo})
        .AllOf(src)
        .AllOf(dst)
        .AllOf(DirName(src))
        .AllOf(DirName(dst))
        .Process()
        .WriteTo(recordKind);
    if (errNo == EPERM) {
        DumpKmsg("MOVE");
    }
}

void RecordMkdirErr(const std::string& path, unsigned int mode, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = "MKDIR", .src = path, .perm = Octal(mode), .errNo = errNo})
        .StatAndXattr(DirName(path))
        .WriteTo(recordKind);
}

void RecordChownErr(const std::string& path, unsigned int uid, unsigned int gid, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText(
        {.type = "CHOWN", .src = path, .user = std::to_string(uid), .group = std::to_string(gid), .errNo = errNo})
        .AllOf(path)
        .Process()
        .WriteTo(recordKind);
    if (IsInvalidOrNotPermitted(errNo)) {
        DumpKmsg("CHOWN");
    }
}

void RecordChmodErr(const std::string& path, unsigned int mode, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = "CHMOD", .src = path, .perm = Octal(mode), .errNo = errNo})
        .StatAndXattr(path)
        .WriteTo(recordKind);
}

void RecordRestoreConFromParentErr(const std::string& path, int ret, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = "RESTORECON_FROMPARENT", .src = path, .errNo = errNo})
        .Fragment("ret=" + std::to_string(ret) + ";")
        .StatAndXattr(path)
        .StatAndXattr(DirName(path))
        .WriteTo(recordKind);
    if (ret == LABEL_REFUSED || ret == LABEL_FAULT) {
        DumpKmsg("RESTORECON_FROMPARENT");
    }
}

void RecordNormalErr(const std::string& code, const std::string& path, int errNo, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    RecordText({.type = code, .src = path, .errNo = errNo}).StatAndXattr(path).WriteTo(recordKind);
}

void RecordErrForPath(const std::string& code, const std::string& path, int errNo, int recordKind) {
    RecordLine({.type = code, .src = path, .errNo = errNo}, recordKind);
}

void RecordRecurseOptErr(const std::string& code, const std::string& path, int recurseOpt, int errNo, int recordKind) {
    RecordLine({.type = code, .src = path, .recurseOpt = std::to_string(recurseOpt), .errNo = errNo}, recordKind);
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
    RecordLine({.type = "UID_" + code, .user = user == nullptr ? "" : user, .errNo = errNo}, recordKind);
}

void RecordGidErr(const char* group, int errNo, int recordKind, const std::string& code) {
    RecordLine({.type = "GID_" + code, .group = group == nullptr ? "" : group, .errNo = errNo}, recordKind);
}

void RecordHandleCmdErr(const std::string& type, const std::string& key, const std::string& value, int recordKind) {
    if (recordKind == RECORD_KIND_NONE) {
        return;
    }
    WriteRecordErrToFile("type:" + type + "," + key + ":" + value + ",times:" + GetCurrentTimeStr() + ";", recordKind);
}

}  // namespace TAVO::FileMigrateOrvane
