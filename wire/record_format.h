// The format of the diagnostic records: which files they go to, the names of the record types and the texts between
// the values. The daemon writes records in this format and the record reader parses them. Constants only.
//
// A record is one information line followed by snapshots. Every part ends with ";", no newline separates two records,
// and nothing is escaped:
//
//   type:T,src:S,dst:D,user:U,group:G,perm:P,recurseOpt:R,errno:E,times:YYYYMMDDhhmmss;SNAPSHOT;SNAPSHOT;...
//
// A refused request has a shorter line and no snapshots: type:T,FIELD:VALUE,times:YYYYMMDDhhmmss;
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>

namespace TAVO::FileMigrateOrvane {

// The record kinds: the trailing argument of every operation says which file its records go to. Any other value
// writes nothing, like RECORD_KIND_NONE.
inline constexpr int RECORD_KIND_NONE = 0;    ///< no record; the recording's own housekeeping passes this
inline constexpr int RECORD_KIND_UPDATE = 1;  ///< RECORD_FILE_UPDATE
inline constexpr int RECORD_KIND_ZELTO = 2;   ///< RECORD_FILE_ZELTO
inline constexpr int RECORD_KIND_AB = 3;      ///< RECORD_FILE_AB, the only one that is rotated

inline constexpr const char* RECORD_FILE_UPDATE = "/data/update/migrate/file_migrate_bi.txt";
inline constexpr const char* RECORD_FILE_ZELTO = "/data/zelto/update/migrate/file_migrate_bi.txt";
inline constexpr const char* RECORD_FILE_AB = "/data/zelto/update/migrate/file_migrate_ab.txt";
inline constexpr std::array RECORD_FILES = {RECORD_FILE_UPDATE, RECORD_FILE_ZELTO, RECORD_FILE_AB};

// "NAME.txt" is rotated to "NAME_YYYYMMDDhhmmss.txt" in the same directory. The time is that of the rotation or a later
// second whose name was free. The names sort in the order of writing, except across a restart with the clock set back.
inline constexpr std::string_view RECORD_FILE_SUFFIX = ".txt";
inline constexpr char ROTATION_SEPARATOR = '_';
inline constexpr int ROTATION_LIMIT_KB = 256;  ///< a file that would reach this many allocated KB is rotated first

/// A kernel-log dump is "TYPE@YYYYMMDDhhmmss" in this directory.
inline constexpr const char* DUMP_DIRECTORY = "/data/zelto/update/migrate/file_migrate_fail_kmsg";
inline constexpr char DUMP_SEPARATOR = '@';
inline constexpr int DUMP_LIMIT = 0x100000;  ///< bytes of the kernel log that are read for one dump

/// Digits of a local time in records and file names, YYYYMMDDhhmmss.
inline constexpr std::size_t TIME_DIGITS = 14;

// The kernel accepts paths of fewer than 4096 bytes. A walk also reaches objects whose paths are longer, because it
// goes from directory to directory. In a record, such a path is cut to 4096 bytes, of which the last five are the mark.
// The parent directory in the record is then that of the cut text.
inline constexpr std::size_t RECORD_PATH_LIMIT = 4096;
inline constexpr std::string_view RECORD_CUT_MARK = "[cut]";

/// Whether a path from a record was cut.
constexpr bool IsCutPath(std::string_view path) {
    return path.size() == RECORD_PATH_LIMIT && path.ends_with(RECORD_CUT_MARK);
}

/// The names of all record types. Their order has no meaning.
inline constexpr std::string_view RECORD_TYPES[] = {
    "COPY", "MOVE", "CHOWN", "CHMOD", "MKDIR", "RESTORECON_FROMPARENT",
    // A path, its stat and its extended attributes.
    "RESTORECON_NORECURSE", "RESTORECONRECURSEPARALLEL", "Unlink", "RMDIR", "REMOVE", "OPEN_TRYREMOVE", "OPEN_TRYCOPY",
    "OPEN_MIGRATESUB", "OPEN_COPYCOMBRECURSE", "OPEN_ADDBLKSRECURSE", "OPEN_RECMAXSIZERECURSE", "LISTDIR_OPEN",
    "ISEXIST",
    // A path alone.
    "OPEN_CHMOWNERECURSE", "OPEN_CHMODERECURSE", "ISDIR", "GETUIDGID", "ADDBLKS_LSTAT", "MAXSIZE_LSTAT",
    "GET_EXISTED_PATH",
    // A field of the request that the operation cannot use.
    "INVALID_RECURSEOPT_MKDIR", "INVALID_RECURSEOPT_PREPAREDIR", "INVALID_RECURSEOPT_CHOWN", "INVALID_RECURSEOPT_CHMOD",
    "INVALID_RECURSEOPT_RESTORECON", "TRANSFORM_MODE", "PARA_EMPTY", "UID_GETPWNAM", "UID_STRTOUL", "UID_IS_NULL",
    "GID_GETGRNAM", "GID_STRTOUL", "GID_IS_NULL",
    // Refused requests.
    "RECVBUFSIZE", "INVALID_STR", "INVALID_CMD", "INVALID_MODE", "INVALID_RECURSEOPT"};

namespace Detail {
/// Declared but never defined. A call in a constant expression stops the compiler, and the name is the error message.
void RecordTypeIsNotListed();
}  // namespace Detail

/// Returns `name` if it is in RECORD_TYPES; any other name does not compile. Code that writes or compares a type passes
/// the name through this function, so that no type is misspelled or missing in the list.
consteval const char* RecordTypeName(const char* name) {
    for (const std::string_view type : RECORD_TYPES) {
        if (type == name) {
            return name;
        }
    }
    Detail::RecordTypeIsNotListed();
    return nullptr;
}

/// The prefix of a type such as "UID_GETPWNAM".
inline constexpr const char* UID_TYPE_PREFIX = "UID_";
inline constexpr const char* GID_TYPE_PREFIX = "GID_";

// Results of the label library after which the kernel log is dumped.
inline constexpr int LABEL_REFUSED = -13;
inline constexpr int LABEL_FAULT = -14;

/// Whether the daemon adds a kernel-log dump to a record.
/// @param labelResult  what a "ret=" snapshot shows; 0 for records without one
constexpr bool HasKernelLogDump(std::string_view type, int errNo, int labelResult) {
    if (type == RecordTypeName("COPY") || type == RecordTypeName("CHOWN")) {
        return errNo == EINVAL || errNo == EPERM;
    }
    if (type == RecordTypeName("MOVE")) {
        return errNo == EPERM;
    }
    return type == RecordTypeName("RESTORECON_FROMPARENT") &&
           (labelResult == LABEL_REFUSED || labelResult == LABEL_FAULT);
}

/// The texts that precede the values of a record. Numbers are decimal unless stated otherwise.
namespace RecordKey {

inline constexpr std::string_view END = ";";  ///< ends the line and each snapshot

inline constexpr std::string_view TYPE = "type:";
inline constexpr std::string_view SRC = ",src:";
inline constexpr std::string_view DST = ",dst:";
inline constexpr std::string_view USER = ",user:";
inline constexpr std::string_view GROUP = ",group:";
inline constexpr std::string_view PERM = ",perm:";
inline constexpr std::string_view RECURSE_OPT = ",recurseOpt:";
inline constexpr std::string_view ERRNO = ",errno:";
inline constexpr std::string_view TIMES = ",times:";

// "lstat PATH" and either the fields below, all of them in this order, or SNAPSHOT_ERRNO.
inline constexpr std::string_view STAT = "lstat ";
inline constexpr std::array<std::string_view, 10> STAT_FIELDS = {
    ":st_dev:", ",st_ino:",  ",st_mode:", ",st_nlink:",   ",st_uid:",
    ",st_gid:", ",st_rdev:", ",st_size:", ",st_blksize:", ",st_blocks:"};
inline constexpr std::string_view SNAPSHOT_ERRNO = ":errno=";

// "llistxattr PATH" and SNAPSHOT_ERRNO, or ":key=KEY" and the value's bytes or NO_VALUE.
inline constexpr std::string_view XATTR = "llistxattr ";
inline constexpr std::string_view XATTR_KEY = ":key=";
inline constexpr std::string_view XATTR_VALUE = ",val=";
inline constexpr std::string_view XATTR_NO_VALUE = ",no value";

// "PATH inode flags:" and INODE_FLAG_DIGITS binary digits, or "PATH STEP errno=" with the step that failed.
inline constexpr std::string_view INODE_FLAGS = " inode flags:";
inline constexpr std::size_t INODE_FLAG_DIGITS = 32;
inline constexpr std::string_view FAILED_REALPATH = " realpath errno=";
inline constexpr std::string_view FAILED_OPEN = " open errno=";
inline constexpr std::string_view FAILED_IOCTL = " ioctl errno=";

// The daemon's credentials, or FAILED_CAPGET. A capability set is written in hexadecimal, its upper and its lower 32
// bits one after the other without padding. Readers depend on that text, although it is ambiguous.
inline constexpr std::string_view EUID = "file_migrate_orvane proc stat:euid(";
inline constexpr std::string_view EGID = "),egid(";
inline constexpr std::string_view EFFECTIVE = "),eff(0x";
inline constexpr std::string_view PERMITTED = "),perm(0x";
inline constexpr std::string_view INHERITABLE = "),inh(0x";
inline constexpr std::string_view PROCESS_END = ")";
inline constexpr std::string_view FAILED_CAPGET = "capget errno=";

// The label call's result.
inline constexpr std::string_view LABEL_RESULT = "ret=";

}  // namespace RecordKey

}  // namespace TAVO::FileMigrateOrvane
