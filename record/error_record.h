// The records of failed operations: one function for each kind of failure. Each composes the information line, adds the
// snapshots for the operation and appends the record to the file of `recordKind`. Some then dump the kernel log. With
// record kind 0 they do nothing.
//
// The functions report no failure to the caller and keep no state. Several threads may call them at the same time.
// docs/records.md explains the records to their readers.
#pragma once

#include <cstdint>
#include <string>

#include "file_migrate_orvane.h"

namespace TAVO::FileMigrateOrvane {

/// The fields of one record. A field that does not apply is empty.
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

/// The information line: every key in a fixed order, with the local time. Texts are not escaped.
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
/// "UID_" + code. @param user the text that could not be decoded; null is recorded as empty
void RecordUidErr(const char* user, int errNo, int recordKind, const std::string& code);
/// "GID_" + code. @param group the text that could not be decoded; null is recorded as empty
void RecordGidErr(const char* group, int errNo, int recordKind, const std::string& code);
/// An unknown recursion option.
void RecordRecurseOptErr(const std::string& code, const std::string& path, int recurseOpt, int errNo, int recordKind);
/// A failure on a path, without snapshots.
void RecordErrForPath(const std::string& code, const std::string& path, int errNo, int recordKind);
/// A failure on a path, with the stat and extended attributes of the object.
void RecordNormalErr(const std::string& code, const std::string& path, int errNo, int recordKind);
/// A request without a field that its command requires.
void RecordEmptyErr(const std::string& code, const FileMigrateRcvMsg* request, int errNo, int recordKind);
/// A mode text that cannot be used.
void RecordModErr(const std::string& code, const std::string& perm, int errNo, int recordKind);
/// A refused request. Its line is short and has one field only.
void RecordHandleCmdErr(const std::string& type, const std::string& key, const std::string& value, int recordKind);

}  // namespace TAVO::FileMigrateOrvane
