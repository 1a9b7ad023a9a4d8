#include "explain.h"

#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/capability.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <memory>
#include <optional>

#include "record_types.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

struct InodeFlag {
    std::uint32_t bit;
    char letter;
    std::string_view words;
};

// In the order in which lsattr prints them.
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

/// The three permission letters of one class. `special` is the letter of its set-id or sticky bit.
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

constexpr std::size_t HALF_DIGITS = 8;
constexpr std::uint64_t ALL_KNOWN = (std::uint64_t{1} << (CAP_LAST_CAP + 1U)) - 1;

/// 32 bits as the daemon writes them, without leading zeros.
std::optional<std::uint64_t> Half(std::string_view digits) {
    if (digits.empty() || digits.size() > HALF_DIGITS || (digits.size() > 1 && digits.front() == '0')) {
        return std::nullopt;
    }
    std::uint64_t bits = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, failure] = std::from_chars(digits.data(), end, bits, 16);
    return rest == end && failure == std::errc() ? std::optional(bits) : std::nullopt;
}

std::string Names(std::uint64_t bits) {
    if (bits == ALL_KNOWN || bits == 0) {
        return bits == 0 ? "none" : "all";
    }
    const std::uint64_t missing = ALL_KNOWN & ~bits;
    if ((bits & ~ALL_KNOWN) == 0 && std::popcount(missing) < std::popcount(bits)) {
        return "all but " + Names(missing);
    }
    std::string names;
    for (int capability = 0; capability < 64; ++capability) {
        if ((bits >> static_cast<unsigned int>(capability) & 1U) != 0) {
            const std::unique_ptr<char, decltype(&cap_free)> name(cap_to_name(capability), cap_free);
            names.append(names.empty() ? "" : ",").append(name ? name.get() : std::to_string(capability));
        }
    }
    return names;
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

std::vector<CapabilityReading> CapabilityReadings(std::string_view joinedDigits) {
    std::vector<std::uint64_t> readings;
    for (std::size_t upperDigits = 1; upperDigits < joinedDigits.size(); ++upperDigits) {
        const auto upper = Half(joinedDigits.substr(0, upperDigits));
        const auto lower = Half(joinedDigits.substr(upperDigits));
        if (upper && lower) {
            readings.push_back(*upper << 32U | *lower);
        }
    }
    const auto isUnknown = [](std::uint64_t bits) { return (bits & ~ALL_KNOWN) != 0; };
    if (!std::all_of(readings.begin(), readings.end(), isUnknown)) {
        std::erase_if(readings, isUnknown);
    }
    std::vector<CapabilityReading> named;
    named.reserve(readings.size());
    for (const std::uint64_t bits : readings) {
        named.push_back({bits, Names(bits)});
    }
    return named;
}

}  // namespace TAVO::FileMigrateOrvane::Reader
