#include "explain.h"

#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <charconv>

#include "record_types.h"

namespace TAVO::FileMigrateOrvane {
namespace {

struct InodeFlag {
    std::uint32_t bit;
    char letter;
    std::string_view words;
};

// In the order of lsattr.
constexpr InodeFlag INODE_FLAGS[] = {
    {FS_SECRM_FL, 's', "secure deletion"},
    {FS_UNRM_FL, 'u', "undelete"},
    {FS_SYNC_FL, 'S', "synchronous updates"},
    {FS_DIRSYNC_FL, 'D', "synchronous directory updates"},
    {FS_IMMUTABLE_FL, 'i', "immutable"},
    {FS_APPEND_FL, 'a', "append-only"},
    {FS_NODUMP_FL, 'd', "no dump"},
    {FS_NOATIME_FL, 'A', "no access time"},
    {FS_COMPR_FL, 'c', "compressed"},
    {FS_ENCRYPT_FL, 'E', "encrypted"},
    {FS_JOURNAL_DATA_FL, 'j', "journaled data"},
    {FS_INDEX_FL, 'I', "indexed directory"},
    {FS_NOTAIL_FL, 't', "no tail merging"},
    {FS_TOPDIR_FL, 'T', "top of directory hierarchies"},
    {FS_EXTENT_FL, 'e', "extents"},
    {FS_NOCOW_FL, 'C', "no copy on write"},
    {FS_DAX_FL, 'x', "direct access"},
    {FS_CASEFOLD_FL, 'F', "case folding"},
    {FS_INLINE_DATA_FL, 'N', "inline data"},
    {FS_PROJINHERIT_FL, 'P', "project hierarchy"},
    {FS_VERITY_FL, 'V', "verity"},
    {FS_NOCOMP_FL, 'm', "not compressed"},
};

char TypeLetter(std::uint32_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return '-';
        case S_IFDIR:
            return 'd';
        case S_IFLNK:
            return 'l';
        case S_IFBLK:
            return 'b';
        case S_IFCHR:
            return 'c';
        case S_IFIFO:
            return 'p';
        case S_IFSOCK:
            return 's';
        default:
            return '?';
    }
}

/// Three letters of the permissions of one class; `special` is the one for its set-id or sticky bit.
std::string Permissions(std::uint32_t bits, bool isSpecial, char special) {
    const bool mayExecute = (bits & 1U) != 0;
    const char upper = static_cast<char>(special - 'a' + 'A');
    const char plain = mayExecute ? 'x' : '-';
    return {(bits & 4U) != 0 ? 'r' : '-', (bits & 2U) != 0 ? 'w' : '-',
            isSpecial ? (mayExecute ? special : upper) : plain};
}

std::string ModeInLetters(std::uint32_t mode) {
    return TypeLetter(mode) + Permissions(mode >> 6U, (mode & S_ISUID) != 0, 's') +
           Permissions(mode >> 3U, (mode & S_ISGID) != 0, 's') + Permissions(mode, (mode & S_ISVTX) != 0, 't');
}

std::string DeviceNumber(std::uint64_t device) {
    return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

std::string Hexadecimal(std::uint32_t bits) {
    std::array<char, 8> digits{};
    return "0x" + std::string(digits.data(), std::to_chars(digits.begin(), digits.end(), bits, 16).ptr);
}

}  // namespace

std::string_view FailureInWords(std::string_view type) {
    const std::string_view words = TypeOf(type).words;
    return words.empty() ? type : words;
}

std::string StatInWords(const StatSnapshot& stat) {
    const bool isDevice = S_ISBLK(stat.mode) || S_ISCHR(stat.mode);
    return ModeInLetters(stat.mode) + " " + std::to_string(stat.uid) + ":" + std::to_string(stat.gid) + " " +
           (isDevice ? DeviceNumber(stat.specialDevice) : std::to_string(stat.size) + " B") + " " +
           std::to_string(stat.blocks) + " blocks ino " + std::to_string(stat.inode) + " dev " +
           DeviceNumber(stat.device);
}

std::string InodeFlagsInWords(std::uint32_t flags) {
    std::string letters;
    std::string words;
    for (const InodeFlag& flag : INODE_FLAGS) {
        const bool isSet = (flags & flag.bit) != 0;
        letters += isSet ? flag.letter : '-';
        if (isSet) {
            words.append(words.empty() ? " " : ", ").append(flag.words);
        }
        flags &= ~flag.bit;
    }
    if (flags != 0) {
        words.append(words.empty() ? " " : ", ").append(Hexadecimal(flags));
    }
    return letters + words;
}

}  // namespace TAVO::FileMigrateOrvane
