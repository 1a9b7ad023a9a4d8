#include "record_types.h"

#include <algorithm>
#include <iterator>

namespace TAVO::FileMigrateOrvane {
namespace {

using enum SnapshotKind;
using enum PathRole;

constexpr SnapshotStep STAT_OF_SRC[] = {{Stat, Src}, {Attributes, Src}};
constexpr SnapshotStep STAT_OF_PARENT[] = {{Stat, SrcParent}, {Attributes, SrcParent}};
constexpr SnapshotStep ALL_OF_SRC[] = {{Stat, Src}, {Attributes, Src}, {Flags, Src}, {Process}};
constexpr SnapshotStep COPIED[] = {{Stat, Src},       {Attributes, Src},       {Flags, Src},  //
                                   {Stat, Dst},       {Attributes, Dst},       {Flags, Dst},
                                   {Stat, DstParent}, {Attributes, DstParent}, {Flags, DstParent},
                                   {Process}};
constexpr SnapshotStep MOVED[] = {{Stat, Src},       {Attributes, Src},       {Flags, Src},
                                  {Stat, Dst},       {Attributes, Dst},       {Flags, Dst},
                                  {Stat, SrcParent}, {Attributes, SrcParent}, {Flags, SrcParent},
                                  {Stat, DstParent}, {Attributes, DstParent}, {Flags, DstParent},
                                  {Process}};
constexpr SnapshotStep LABELLED[] = {
    {LabelResult}, {Stat, Src}, {Attributes, Src}, {Stat, SrcParent}, {Attributes, SrcParent}};
// The longest of them, with what it lacks.
constexpr SnapshotStep ANY[] = {{LabelResult},      {Stat, Src},       {Attributes, Src},
                                {Flags, Src},       {Stat, Dst},       {Attributes, Dst},
                                {Flags, Dst},       {Stat, SrcParent}, {Attributes, SrcParent},
                                {Flags, SrcParent}, {Stat, DstParent}, {Attributes, DstParent},
                                {Flags, DstParent}, {Process}};

constexpr FieldShape NUMBER = FieldShape::Number;
constexpr FieldShape TEXT = FieldShape::Text;
constexpr LineShape PATH{};
constexpr LineShape PATHS{.hasDst = true};
constexpr LineShape OWNER{.user = NUMBER, .group = NUMBER};
constexpr LineShape MODE{.perm = NUMBER};
constexpr LineShape OPTION{.recurseOpt = NUMBER};
constexpr LineShape USER_TEXT{.hasSrc = false, .user = TEXT};
constexpr LineShape GROUP_TEXT{.hasSrc = false, .group = TEXT};
constexpr LineShape MODE_TEXT{.hasSrc = false, .perm = TEXT};
constexpr LineShape REQUEST{.user = TEXT, .group = TEXT, .perm = TEXT, .recurseOpt = NUMBER};
constexpr LineShape ANY_FIELDS{.hasDst = true, .user = TEXT, .group = TEXT, .perm = TEXT, .recurseOpt = TEXT};

constexpr RecordType TYPES[] = {
    {"COPY", "copy", PATHS, COPIED},
    {"MOVE", "rename", PATHS, MOVED},
    {"CHOWN", "change owner", OWNER, ALL_OF_SRC},
    {"CHMOD", "change mode", MODE, STAT_OF_SRC},
    {"MKDIR", "create directory", MODE, STAT_OF_PARENT},
    {"RESTORECON_FROMPARENT", "label by parent's rules", PATH, LABELLED},
    {"RESTORECON_NORECURSE", "label", PATH, STAT_OF_SRC},
    {"RESTORECONRECURSEPARALLEL", "label tree", PATH, STAT_OF_SRC},
    {"Unlink", "remove file", PATH, STAT_OF_SRC},
    {"RMDIR", "remove directory", PATH, STAT_OF_SRC},
    {"REMOVE", "remove tree", PATH, STAT_OF_SRC},
    {"OPEN_TRYREMOVE", "remove: open directory", PATH, STAT_OF_SRC},
    {"OPEN_TRYCOPY", "copy: open directory", PATH, STAT_OF_SRC},
    {"OPEN_MIGRATESUB", "migrate: open directory", PATH, STAT_OF_SRC},
    {"OPEN_COPYCOMBRECURSE", "copy-comb: open directory", PATH, STAT_OF_SRC},
    {"OPEN_ADDBLKSRECURSE", "measure: open directory", PATH, STAT_OF_SRC},
    {"OPEN_RECMAXSIZERECURSE", "largest: open directory", PATH, STAT_OF_SRC},
    {"LISTDIR_OPEN", "list: open directory", PATH, STAT_OF_SRC},
    {"ISEXIST", "ask whether it exists", PATH, STAT_OF_SRC},
    {"OPEN_CHMOWNERECURSE", "chown: open directory", PATH, {}},
    {"OPEN_CHMODERECURSE", "chmod: open directory", PATH, {}},
    {"ISDIR", "ask whether it is a directory", PATH, {}},
    {"GETUIDGID", "look up its owner", PATH, {}},
    {"ADDBLKS_LSTAT", "add up its space", PATH, {}},
    {"MAXSIZE_LSTAT", "look up its size", PATH, {}},
    {"GET_EXISTED_PATH", "find existing path", PATH, {}},
    {"INVALID_RECURSEOPT_MKDIR", "mkdir: recursion option", OPTION, {}},
    {"INVALID_RECURSEOPT_PREPAREDIR", "prepare-dir: recursion option", OPTION, {}},
    {"INVALID_RECURSEOPT_CHOWN", "chown: recursion option", OPTION, {}},
    {"INVALID_RECURSEOPT_CHMOD", "chmod: recursion option", OPTION, {}},
    {"INVALID_RECURSEOPT_RESTORECON", "label: recursion option", OPTION, {}},
    {"TRANSFORM_MODE", "read the mode", MODE_TEXT, {}},
    {"PARA_EMPTY", "read user, group, mode", REQUEST, {}},
    {"UID_GETPWNAM", "find the user", USER_TEXT, {}},
    {"UID_STRTOUL", "read the user number", USER_TEXT, {}},
    {"UID_IS_NULL", "read the user", USER_TEXT, {}},
    {"GID_GETGRNAM", "find the group", GROUP_TEXT, {}},
    {"GID_STRTOUL", "read the group number", GROUP_TEXT, {}},
    {"GID_IS_NULL", "read the group", GROUP_TEXT, {}},
    // Refused requests: their short line has one field, of its own.
    {"RECVBUFSIZE", "refused request: size", {}, {}},
    {"INVALID_STR", "refused request: text", {}, {}},
    {"INVALID_CMD", "refused request: command", {}, {}},
    {"INVALID_MODE", "refused request: mode", {}, {}},
    {"INVALID_RECURSEOPT", "refused request: recursion option", {}, {}},
};

constexpr RecordType UNKNOWN{"", "", ANY_FIELDS, ANY};

}  // namespace

const RecordType& TypeOf(std::string_view name) {
    const auto* const type = std::find_if(std::begin(TYPES), std::end(TYPES),
                                          [&](const RecordType& candidate) { return candidate.name == name; });
    return type != std::end(TYPES) ? *type : UNKNOWN;
}

}  // namespace TAVO::FileMigrateOrvane
