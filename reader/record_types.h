// The layout of each record type: which fields of its line are filled, which snapshots follow and in which order, and
// the failed operation in words. Constant data; any thread may read it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace TAVO::FileMigrateOrvane::Reader {

/// What a field may contain: nothing, decimal or octal digits, or any text of at most MAX_TEXT bytes.
enum class FieldShape : std::uint8_t { Empty, Number, Text };

/// The fields of an information line. A path may be any text.
struct LineShape {
    bool hasSrc = true;
    bool hasDst = false;
    FieldShape user = FieldShape::Empty;
    FieldShape group = FieldShape::Empty;
    FieldShape perm = FieldShape::Empty;
    FieldShape recurseOpt = FieldShape::Empty;
};

/// The longest user or group text of a request, in bytes; the mode text is shorter.
inline constexpr std::size_t MAX_TEXT = 35;

enum class SnapshotKind : std::uint8_t { LabelResult, Stat, Attributes, Flags, Process };

/// The object that a snapshot describes.
enum class PathRole : std::uint8_t { Src, Dst, SrcParent, DstParent };

struct SnapshotStep {
    SnapshotKind kind;
    PathRole path = PathRole::Src;
};

struct RecordType {
    std::string_view name;
    std::string_view words;  ///< the failed operation
    LineShape line;
    std::span<const SnapshotStep> snapshots;
};

/// The type of that name. For an unknown name: a type with an empty name, any fields and any snapshots.
const RecordType& TypeOf(std::string_view name);

}  // namespace TAVO::FileMigrateOrvane::Reader
