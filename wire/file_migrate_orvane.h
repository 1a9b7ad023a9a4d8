// The records that file_migrate_orvane and its clients exchange.
//
// A client writes one FileMigrateRcvMsg. The daemon answers with one FileMigrateResMsg, followed by `pkgNum` records of
// type FileMigrateStrPkg. Integers are 32-bit two's complement in host byte order, because both ends run on one
// machine. Every text field is NUL-terminated within its width. There is no padding, magic number or version: changing
// a width, an offset or a command number breaks every client in the field.
//
// This header includes nothing else of the project and is installed for clients.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TAVO::FileMigrateOrvane {

inline constexpr std::size_t PATH_WIDTH = 4096;     ///< bytes of a path field, its NUL included
inline constexpr std::size_t OWNER_WIDTH = 36;      ///< bytes of a user or group field, its NUL included
inline constexpr std::size_t PERM_WIDTH = 16;       ///< bytes of the mode field, its NUL included
inline constexpr std::size_t PACKAGE_WIDTH = 4096;  ///< bytes of a package's text, its NUL included

/// The values of FileMigrateRcvMsg::cmd.
enum class Command : std::int32_t {
    IsExist = 0,
    IsDir = 1,
    ListDir = 2,
    PrepareDir = 3,
    MoveSub = 4,
    MoveAll = 5,
    CopySub = 6,
    CopyAll = 7,
    Remove = 8,
    Restorecon = 9,
    RestoreconFromParent = 10,
    TryRemove = 11,
    MkDir = 12,
    ChOwn = 13,
    ChMod = 14,
    ExistedPath = 15,
    UsedSpace = 16,
    MaxSize = 17,
    CopyComb = 18,
};

/// Valid command numbers are 0 to COMMAND_COUNT - 1.
inline constexpr std::uint32_t COMMAND_COUNT = static_cast<std::uint32_t>(Command::CopyComb) + 1;

/// A request. Every text field must contain a NUL and must not contain "../", even if the command ignores the field.
struct FileMigrateRcvMsg {
    std::int32_t cmd;         ///< a Command
    char src[PATH_WIDTH];     ///< source path
    char dst[PATH_WIDTH];     ///< destination path
    char user[OWNER_WIDTH];   ///< owner user, a name or a decimal number
    char group[OWNER_WIDTH];  ///< owner group, a name or a decimal number
    char perm[PERM_WIDTH];    ///< permission bits as octal text
    std::int32_t recurseOpt;  ///< 0 (not used), 1 (the path only) or 2 (recursive)
};

/// The first part of the answer to a valid request. A refused request gets no answer.
struct FileMigrateResMsg {
    std::int32_t result;   ///< the command's result; 0 is success, except for the queries
    std::int32_t errCode;  ///< the last error number that occurred, 0 if there was no error; a success can have one too
    std::int32_t pkgNum;   ///< number of string packages that follow
};

/// One package of result strings, separated by "/".
struct FileMigrateStrPkg {
    std::int32_t pkgNum;       ///< as in the result record
    std::int32_t pkgIndex;     ///< 1 to pkgNum
    char data[PACKAGE_WIDTH];  ///< text, NUL-terminated, zero-filled
};

static_assert(sizeof(FileMigrateRcvMsg) == 8288);
static_assert(offsetof(FileMigrateRcvMsg, cmd) == 0);
static_assert(offsetof(FileMigrateRcvMsg, src) == 4);
static_assert(offsetof(FileMigrateRcvMsg, dst) == 4100);
static_assert(offsetof(FileMigrateRcvMsg, user) == 8196);
static_assert(offsetof(FileMigrateRcvMsg, group) == 8232);
static_assert(offsetof(FileMigrateRcvMsg, perm) == 8268);
static_assert(offsetof(FileMigrateRcvMsg, recurseOpt) == 8284);

static_assert(sizeof(FileMigrateResMsg) == 12);
static_assert(offsetof(FileMigrateResMsg, result) == 0);
static_assert(offsetof(FileMigrateResMsg, errCode) == 4);
static_assert(offsetof(FileMigrateResMsg, pkgNum) == 8);

static_assert(sizeof(FileMigrateStrPkg) == 4104);
static_assert(offsetof(FileMigrateStrPkg, pkgNum) == 0);
static_assert(offsetof(FileMigrateStrPkg, pkgIndex) == 4);
static_assert(offsetof(FileMigrateStrPkg, data) == 8);

}  // namespace TAVO::FileMigrateOrvane
