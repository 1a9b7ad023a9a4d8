// The records of failed operations: one function for each kind of failure. Each composes the information line,
// adds the snapshots that suit the operation and appends the whole to the record file of `recordKind`; some dump
// the kernel log afterwards. With record kind 0 they do nothing at all.
//
// They cannot fail from the caller's point of view, keep no state and may run on several threads at once. What
// a reader of the records needs to know is in docs/records.md.
#pragma once

#include <cstdint>
#include <string>

#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateOrvane {

/// The fields of one record; a field that does not apply stays empty.
struct ErrInfo {
    std::string type{};        ///< what failed, for example "MOVE"
    std::string src{};         ///< the (first) path concerned
    std::string dst{};         ///< the destination path
    std::string user{};        ///< user name or decimal id
    std::string group{};       ///< group name or decimal id
    std::string perm{};        ///< mode text
    std::string recurseOpt{};  ///< recursion option, decimal
    std::int32_t errNo = 0;    ///< error number of the failure
};

/// The information line: every key in fixed order, the local time, texts as they are, without escaping.
[[nodiscard]] std::string GetErrInfoRecord(ErrInfo& info);

/// "COPY"; dumps the kernel log for errors 22 and 1.
void RecordCopyErr(const std::string& src, const std::string& dst, int errNo, int recordKind);
/// "MOVE"; dumps the kernel log for error 1.
void RecordMoveErr(const std::string& src, const std::string& dst, int errNo, int recordKind);
/// "MKDIR", with the parent's snapshots. @param mode permission bits
void RecordMkdirErr(const std::string& path, unsigned int mode, int errNo, int recordKind);
/// "CHOWN"; dumps the kernel log for errors 22 and 1.
void RecordChownErr(const std::string& path, unsigned int uid, unsigned int gid, int errNo, int recordKind);
/// "CHMOD". @param mode permission bits
void RecordChmodErr(const std::string& path, unsigned int mode, int errNo, int recordKind);
/// "RESTORECON_FROMPARENT"; dumps the kernel log when the label call's result `ret` is -13 or -14.
void RecordRestoreConFromParentErr(const std::string& path, int ret, int errNo, int recordKind);
/// "UID_" + code. @param user the text that is no user; null is recorded as empty
void RecordUidErr(const char* user, int errNo, int recordKind, const std::string& code);
/// "GID_" + code. @param group the text that is no group; null is recorded as empty
void RecordGidErr(const char* group, int errNo, int recordKind, const std::string& code);
/// An unknown recursion option.
void RecordRecurseOptErr(const std::string& code, const std::string& path, int recurseOpt, int errNo, int recordKind);
/// A failure on a path, without snapshots.
void RecordErrForPath(const std::string& code, const std::string& path, int errNo, int recordKind);
/// A failure on a path, with its stat and extended attributes.
void RecordNormalErr(const std::string& code, const std::string& path, int errNo, int recordKind);
/// A request that lacks a field its command needs.
void RecordEmptyErr(const std::string& code, const FileMigrateRcvMsg* request, int errNo, int recordKind);
/// A mode text that cannot be used.
void RecordModErr(const std::string& code, const std::string& perm, int errNo, int recordKind);
/// A refused request: its own short line, without the other fields.
void RecordHandleCmdErr(const std::string& type, const std::string& key, const std::string& value, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
