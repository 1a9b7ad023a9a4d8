#include "record_types.h"

#include <algorithm>
#include <iterator>

#include "record_format.h"

namespace TAVO::FileMigrateOrvane::Reader {
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
// For types that this reader does not know: every snapshot of a record, in the usual order.
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
    {RecordTypeName("COPY"), "copy", PATHS, COPIED},
    {RecordTypeName("MOVE"), "rename", PATHS, MOVED},
    {RecordTypeName("CHOWN"), "change owner", OWNER, ALL_OF_SRC},
    {RecordTypeName("CHMOD"), "change mode", MODE, STAT_OF_SRC},
    {RecordTypeName("MKDIR"), "create directory", MODE, STAT_OF_PARENT},
    {RecordTypeName("RESTORECON_FROMPARENT"), "label by parent's rules", PATH, LABELLED},
    {RecordTypeName("RESTORECON_NORECURSE"), "label", PATH, STAT_OF_SRC},
    {RecordTypeName("RESTORECONRECURSEPARALLEL"), "label tree", PATH, STAT_OF_SRC},
    {RecordTypeName("Unlink"), "remove file", PATH, STAT_OF_SRC},
    {RecordTypeName("RMDIR"), "remove directory", PATH, STAT_OF_SRC},
    {RecordTypeName("REMOVE"), "remove tree", PATH, STAT_OF_SRC},
    {RecordTypeName("OPEN_TRYREMOVE"), "remove: open directory", PATH, STAT_OF_SRC},
    {RecordTypeName("OPEN_TRYCOPY"), "copy: open directory", PATH, STAT_OF_SRC},
    {RecordTypeName("OPEN_MIGRATESUB"), "migrate: open directory", PATH, STAT_OF_SRC},
    {RecordTypeName("OPEN_COPYCOMBRECURSE"), "copy-comb: open directory", PATH, STAT_OF_SRC},
    {RecordTypeName("OPEN_ADDBLKSRECURSE"), "measure: open directory", PATH, STAT_OF_SRC},
    {RecordTypeName("OPEN_RECMAXSIZERECURSE"), "largest: open directory", PATH, STAT_OF_SRC},
    {RecordTypeName("LISTDIR_OPEN"), "list: open directory", PATH, STAT_OF_SRC},
    {RecordTypeName("ISEXIST"), "ask whether it exists", PATH, STAT_OF_SRC},
    {RecordTypeName("OPEN_CHMOWNERECURSE"), "chown: open directory", PATH, {}},
    {RecordTypeName("OPEN_CHMODERECURSE"), "chmod: open directory", PATH, {}},
    {RecordTypeName("ISDIR"), "ask whether it is a directory", PATH, {}},
    {RecordTypeName("GETUIDGID"), "look up its owner", PATH, {}},
    {RecordTypeName("ADDBLKS_LSTAT"), "add up its space", PATH, {}},
    {RecordTypeName("MAXSIZE_LSTAT"), "look up its size", PATH, {}},
    {RecordTypeName("GET_EXISTED_PATH"), "find existing path", PATH, {}},
    {RecordTypeName("INVALID_RECURSEOPT_MKDIR"), "mkdir: recursion option", OPTION, {}},
    {RecordTypeName("INVALID_RECURSEOPT_PREPAREDIR"), "prepare-dir: recursion option", OPTION, {}},
    {RecordTypeName("INVALID_RECURSEOPT_CHOWN"), "chown: recursion option", OPTION, {}},
    {RecordTypeName("INVALID_RECURSEOPT_CHMOD"), "chmod: recursion option", OPTION, {}},
    {RecordTypeName("INVALID_RECURSEOPT_RESTORECON"), "label: recursion option", OPTION, {}},
    {RecordTypeName("TRANSFORM_MODE"), "read the mode", MODE_TEXT, {}},
    {RecordTypeName("PARA_EMPTY"), "read user, group, mode", REQUEST, {}},
    {RecordTypeName("UID_GETPWNAM"), "find the user", USER_TEXT, {}},
    {RecordTypeName("UID_STRTOUL"), "read the user number", USER_TEXT, {}},
    {RecordTypeName("UID_IS_NULL"), "read the user", USER_TEXT, {}},
    {RecordTypeName("GID_GETGRNAM"), "find the group", GROUP_TEXT, {}},
    {RecordTypeName("GID_STRTOUL"), "read the group number", GROUP_TEXT, {}},
    {RecordTypeName("GID_IS_NULL"), "read the group", GROUP_TEXT, {}},
    // Refused requests: their short line has a single field.
    {RecordTypeName("RECVBUFSIZE"), "refused request: size", {}, {}},
    {RecordTypeName("INVALID_STR"), "refused request: text", {}, {}},
    {RecordTypeName("INVALID_CMD"), "refused request: command", {}, {}},
    {RecordTypeName("INVALID_MODE"), "refused request: mode", {}, {}},
    {RecordTypeName("INVALID_RECURSEOPT"), "refused request: recursion option", {}, {}},
};

constexpr RecordType UNKNOWN{"", "", ANY_FIELDS, ANY};

constexpr const RecordType& Find(std::string_view name) {
    const auto* const type = std::ranges::find(TYPES, name, &RecordType::name);
    return type != std::end(TYPES) ? *type : UNKNOWN;
}
static_assert(std::ranges::all_of(RECORD_TYPES, [](std::string_view name) { return Find(name).name == name; }),
              "a type that the daemon can write has no row");

}  // namespace

const RecordType& TypeOf(std::string_view name) {
    return Find(name);
}

}  // namespace TAVO::FileMigrateOrvane::Reader
