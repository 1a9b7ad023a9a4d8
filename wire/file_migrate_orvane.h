// The records that file_migrate_orvane and its clients exchange.
//
// A client writes one FileMigrateRcvMsg. The daemon answers with one FileMigrateResMsg, followed by `pkgNum` records of
// type FileMigrateStrPkg. Integers are 32-bit two's complement in host byte order, because both ends run on one
// machine. Every text field is NUL-terminated within its width. There is no padding, magic number or version: changing
// a width, an offset or a command number breaks every client in the field.
//
// This header includes nothing else of the project and is installed for clients in C++ and in C (C11). The records have
// the same names in both. C has no namespaces: there the commands are FileMigrateCommand_IsExist and so on, and the
// widths are the macros below.
#pragma once

// Bytes of the text fields, their NUL included.
#define FILE_MIGRATE_PATH_WIDTH 4096
#define FILE_MIGRATE_OWNER_WIDTH 36
#define FILE_MIGRATE_PERM_WIDTH 16
#define FILE_MIGRATE_PACKAGE_WIDTH 4096

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>

namespace TAVO::FileMigrateOrvane {

inline constexpr std::size_t PATH_WIDTH = FILE_MIGRATE_PATH_WIDTH;
inline constexpr std::size_t OWNER_WIDTH = FILE_MIGRATE_OWNER_WIDTH;
inline constexpr std::size_t PERM_WIDTH = FILE_MIGRATE_PERM_WIDTH;
inline constexpr std::size_t PACKAGE_WIDTH = FILE_MIGRATE_PACKAGE_WIDTH;

/// The values of FileMigrateRcvMsg::cmd.
enum class Command : std::int32_t {
#define FILE_MIGRATE_COMMAND_NAME(name) name
#else
#include <assert.h>
#include <stddef.h>
#include <stdint.h>

enum FileMigrateCommand {
#define FILE_MIGRATE_COMMAND_NAME(name) FileMigrateCommand_##name
#endif
    FILE_MIGRATE_COMMAND_NAME(IsExist) = 0,
    FILE_MIGRATE_COMMAND_NAME(IsDir) = 1,
    FILE_MIGRATE_COMMAND_NAME(ListDir) = 2,
    FILE_MIGRATE_COMMAND_NAME(PrepareDir) = 3,
    FILE_MIGRATE_COMMAND_NAME(MoveSub) = 4,
    FILE_MIGRATE_COMMAND_NAME(MoveAll) = 5,
    FILE_MIGRATE_COMMAND_NAME(CopySub) = 6,
    FILE_MIGRATE_COMMAND_NAME(CopyAll) = 7,
    FILE_MIGRATE_COMMAND_NAME(Remove) = 8,
    FILE_MIGRATE_COMMAND_NAME(Restorecon) = 9,
    FILE_MIGRATE_COMMAND_NAME(RestoreconFromParent) = 10,
    FILE_MIGRATE_COMMAND_NAME(TryRemove) = 11,
    FILE_MIGRATE_COMMAND_NAME(MkDir) = 12,
    FILE_MIGRATE_COMMAND_NAME(ChOwn) = 13,
    FILE_MIGRATE_COMMAND_NAME(ChMod) = 14,
    FILE_MIGRATE_COMMAND_NAME(ExistedPath) = 15,
    FILE_MIGRATE_COMMAND_NAME(UsedSpace) = 16,
    FILE_MIGRATE_COMMAND_NAME(MaxSize) = 17,
    FILE_MIGRATE_COMMAND_NAME(CopyComb) = 18,
};
#undef FILE_MIGRATE_COMMAND_NAME

#ifdef __cplusplus
/// Valid command numbers are 0 to COMMAND_COUNT - 1.
inline constexpr std::uint32_t COMMAND_COUNT = static_cast<std::uint32_t>(Command::CopyComb) + 1;
#else
typedef struct FileMigrateRcvMsg FileMigrateRcvMsg;
typedef struct FileMigrateResMsg FileMigrateResMsg;
typedef struct FileMigrateStrPkg FileMigrateStrPkg;
#endif

/// A request. Every text field must contain a NUL and must not contain "../", even if the command ignores the field.
struct FileMigrateRcvMsg {
    int32_t cmd;                           ///< a Command
    char src[FILE_MIGRATE_PATH_WIDTH];     ///< source path
    char dst[FILE_MIGRATE_PATH_WIDTH];     ///< destination path
    char user[FILE_MIGRATE_OWNER_WIDTH];   ///< owner user, a name or a decimal number
    char group[FILE_MIGRATE_OWNER_WIDTH];  ///< owner group, a name or a decimal number
    char perm[FILE_MIGRATE_PERM_WIDTH];    ///< permission bits as octal text
    int32_t recurseOpt;                    ///< 0 (not used), 1 (the path only) or 2 (recursive)
};

/// The first part of the answer to a valid request. A refused request gets no answer.
struct FileMigrateResMsg {
    int32_t result;   ///< the command's result; 0 is success, except for the queries
    int32_t errCode;  ///< the last error number that occurred, 0 if there was no error; a success can have one too
    int32_t pkgNum;   ///< number of string packages that follow
};

/// One package of result strings, separated by "/".
struct FileMigrateStrPkg {
    int32_t pkgNum;                         ///< as in the result record
    int32_t pkgIndex;                       ///< 1 to pkgNum
    char data[FILE_MIGRATE_PACKAGE_WIDTH];  ///< text, NUL-terminated, zero-filled
};

static_assert(sizeof(FileMigrateRcvMsg) == 8288, "the layout is fixed");
static_assert(offsetof(FileMigrateRcvMsg, cmd) == 0, "the layout is fixed");
static_assert(offsetof(FileMigrateRcvMsg, src) == 4, "the layout is fixed");
static_assert(offsetof(FileMigrateRcvMsg, dst) == 4100, "the layout is fixed");
static_assert(offsetof(FileMigrateRcvMsg, user) == 8196, "the layout is fixed");
static_assert(offsetof(FileMigrateRcvMsg, group) == 8232, "the layout is fixed");
static_assert(offsetof(FileMigrateRcvMsg, perm) == 8268, "the layout is fixed");
static_assert(offsetof(FileMigrateRcvMsg, recurseOpt) == 8284, "the layout is fixed");

static_assert(sizeof(FileMigrateResMsg) == 12, "the layout is fixed");
static_assert(offsetof(FileMigrateResMsg, result) == 0, "the layout is fixed");
static_assert(offsetof(FileMigrateResMsg, errCode) == 4, "the layout is fixed");
static_assert(offsetof(FileMigrateResMsg, pkgNum) == 8, "the layout is fixed");

static_assert(sizeof(FileMigrateStrPkg) == 4104, "the layout is fixed");
static_assert(offsetof(FileMigrateStrPkg, pkgNum) == 0, "the layout is fixed");
static_assert(offsetof(FileMigrateStrPkg, pkgIndex) == 4, "the layout is fixed");
static_assert(offsetof(FileMigrateStrPkg, data) == 8, "the layout is fixed");

#ifdef __cplusplus
}  // namespace TAVO::FileMigrateOrvane
#endif
