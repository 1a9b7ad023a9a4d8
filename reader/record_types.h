// What each type of record looks like: which fields of its line are filled, which snapshots follow and in which
// order, and what failed in words. Constant data; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace TAVO::FileMigrateOrvane {

/// What a field can hold: nothing, decimal or octal digits, or any text of at most MAX_TEXT bytes.
enum class FieldShape : std::uint8_t { Empty, Number, Text };

/// The fields of an information line; a path can be any text.
struct LineShape {
    bool hasSrc = true;
    bool hasDst = false;
    FieldShape user = FieldShape::Empty;
    FieldShape group = FieldShape::Empty;
    FieldShape perm = FieldShape::Empty;
    FieldShape recurseOpt = FieldShape::Empty;
};

/// The longest user or group text that a request can hold; its mode text is shorter.
inline constexpr std::size_t MAX_TEXT = 35;

enum class SnapshotKind : std::uint8_t { LabelResult, Stat, Attributes, Flags, Process };

/// Whose snapshot it is.
enum class PathRole : std::uint8_t { Src, Dst, SrcParent, DstParent };

struct SnapshotStep {
    SnapshotKind kind;
    PathRole path = PathRole::Src;
};

struct RecordType {
    std::string_view name;
    std::string_view words;  ///< what failed
    LineShape line;
    std::span<const SnapshotStep> snapshots;
};

/// The type of that name; for a name that is none, a type without a name whose fields and snapshots can all be there.
const RecordType& TypeOf(std::string_view name);

}  // namespace TAVO::FileMigrateOrvane
