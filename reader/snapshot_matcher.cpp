#include "snapshot_matcher.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <utility>

#include "cursor.h"
#include "snapshot_text.h"

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

constexpr std::size_t PER_TRY = 32;
/// A label contains no ";", so its value ends at the first one.
constexpr std::string_view LABEL_KEY = "security.selinux";

std::size_t AfterNewlines(std::string_view bytes, std::size_t position) {
    Cursor cursor(bytes, position);
    cursor.SkipNewlines();
    return cursor.Position();
}

/// Whether a supposed resolved path is in fact the end of an attribute value followed by more snapshots.
bool IsEndOfValue(std::string_view resolved, const std::string& given) {
    return resolved.ends_with(";" + given) || resolved.find(";llistxattr " + given + ":key=") != std::string_view::npos;
}

}  // namespace

SnapshotMatcher::SnapshotMatcher(ParsedText& parsedText, const RecordType& recordType,
                                 const InformationLine& informationLine,
                                 std::function<bool(const RecordStart&)> isRecordAt)
    : text(parsedText), type(recordType), line(informationLine), isRecord(std::move(isRecordAt)) {}

SnapshotMatcher::Result SnapshotMatcher::Match() {
    best.end = line.end;
    if (text.budget.Spend(line.src.size() + line.dst.size()) && !MatchFrom(0, line.end)) {
        best.stoppedAt = stoppedAt;
    }
    return std::move(best);
}

bool SnapshotMatcher::MatchFrom(std::size_t step, std::size_t position) {
    if (!text.budget.Spend(PER_TRY)) {
        KeepIfLongest(position);
        return false;
    }
    return step == type.snapshots.size() ? Finish(position) : MatchStep(step, position);
}

bool SnapshotMatcher::MatchStep(std::size_t step, std::size_t position) {
    switch (type.snapshots[step].kind) {
        case SnapshotKind::LabelResult:
            return MatchPlain<LabelResult>(step, position, TakeLabelResult);
        case SnapshotKind::Stat:
            return MatchPlain<StatSnapshot>(step, position, [&](Cursor& cursor, StatSnapshot& stat) {
                stat.path = Path(type.snapshots[step].path);
                return TakeStat(cursor, stat.path, stat);
            });
        case SnapshotKind::Attributes:
            return MatchAttributes(step, position);
        case SnapshotKind::Flags:
            return MatchFlags(step, position);
        case SnapshotKind::Process:
            return MatchPlain<ProcessSnapshot>(step, position, TakeProcess);
    }
    return false;
}

template <class Kind, class Take>
bool SnapshotMatcher::MatchPlain(std::size_t step, std::size_t position, Take take) {
    Kind snapshot;
    Cursor cursor(text.bytes, AfterNewlines(text.bytes, position));
    return take(cursor, snapshot) ? Continue(step, cursor.Position(), std::move(snapshot)) : SkipStep(step, position);
}

/// Reads any number of attributes. If no value could be read, there are none.
bool SnapshotMatcher::MatchAttributes(std::size_t step, std::size_t position) {
    AttributeSnapshot failure;
    failure.path = Path(type.snapshots[step].path);
    Cursor cursor(text.bytes, AfterNewlines(text.bytes, position));
    if (TakeAttributeFailure(cursor, failure.path, failure)) {
        return Continue(step, cursor.Position(), std::move(failure));
    }
    Cursor head(text.bytes, AfterNewlines(text.bytes, position));
    if (!TakeAttributeHead(head, failure.path)) {
        return MatchFrom(step + 1, position);
    }
    const auto before = static_cast<std::ptrdiff_t>(current.size());
    Follower follower = Follower::Attribute;
    while (follower == Follower::Attribute) {
        follower = MatchAttribute(step, position);
    }
    current.erase(current.begin() + before, current.end());
    return follower == Follower::Rest;
}

/// Reads the attribute at `position`. It ends at the first ";" that is followed by another attribute of the same path
/// or by the whole rest of the record. In the first case it is added to `current` and `position` moves past it.
SnapshotMatcher::Follower SnapshotMatcher::MatchAttribute(std::size_t step, std::size_t& position) {
    const std::string& path = Path(type.snapshots[step].path);
    Cursor head(text.bytes, AfterNewlines(text.bytes, position));
    (void)TakeAttributeHead(head, path);
    KeepIfLongest(position);  // in case the attribute has no end
    const std::size_t body = head.Position();
    const RecordStart* start = text.landmarks.StartFrom(body);
    bool isFirst = true;
    std::size_t from = body;
    for (std::size_t end = 0; (end = text.bytes.find(';', from)) != std::string_view::npos; from = end + 1) {
        AttributeSnapshot attribute;
        attribute.path = path;
        if (!text.budget.Spend(end - from + 1) || IsRecordBefore(end, start)) {
            break;
        }
        if ((!isFirst && !MayBegin(end + 1, path)) || !text.budget.Spend(end - body) ||
            !ReadAttribute(text.bytes.substr(body, end - body), attribute)) {
            continue;
        }
        const bool isLabel = attribute.key == LABEL_KEY;
        const Follower follower = TryAfter(step, end + 1, std::move(attribute));
        if (follower != Follower::Nothing || isLabel) {
            position = end + 1;
            return follower;
        }
        isFirst = false;
    }
    return Follower::Nothing;
}

/// What fits after an attribute that ends at `position`.
SnapshotMatcher::Follower SnapshotMatcher::TryAfter(std::size_t step, std::size_t position,
                                                    AttributeSnapshot attribute) {
    Cursor next(text.bytes, AfterNewlines(text.bytes, position));
    const bool isAnother = TakeAttributeHead(next, attribute.path);
    current.emplace_back(std::move(attribute));
    if (isAnother || MatchFrom(step + 1, position)) {
        return isAnother ? Follower::Attribute : Follower::Rest;
    }
    current.pop_back();
    return Follower::Nothing;
}

/// Whether a real record begins before `end`. @param start  the first start that was not checked yet
bool SnapshotMatcher::IsRecordBefore(std::size_t end, const RecordStart*& start) {
    for (; start != nullptr && start->position < end; start = text.landmarks.Next(*start)) {
        if (isRecord && isRecord(*start)) {
            stoppedAt = start;
            return true;
        }
    }
    return false;
}

/// Whether a snapshot, a record or the end of the text may be at `position`.
bool SnapshotMatcher::MayBegin(std::size_t position, std::string_view path) const {
    constexpr std::string_view beginnings[] = {
        "/", RecordKey::STAT, RecordKey::XATTR, RecordKey::EUID, RecordKey::FAILED_CAPGET, RecordKey::TYPE};
    const Cursor next(text.bytes, AfterNewlines(text.bytes, position));
    return next.Position() == text.bytes.size() || next.IsAt(path) ||
           std::any_of(std::begin(beginnings), std::end(beginnings),
                       [&](std::string_view beginning) { return next.IsAt(beginning); });
}

bool SnapshotMatcher::MatchFlags(std::size_t step, std::size_t position) {
    FlagsSnapshot flags;
    flags.path = Path(type.snapshots[step].path);
    const std::size_t begin = AfterNewlines(text.bytes, position);
    Cursor cursor(text.bytes, begin);
    const bool isAsGiven = cursor.Take(flags.path) && TakeFlags(cursor, flags);
    if (isAsGiven && Continue(step, cursor.Position(), std::move(flags))) {
        return true;
    }
    if (text.bytes.substr(begin).starts_with('/') && MatchResolved(step, begin)) {
        return true;
    }
    return isAsGiven ? false : SkipStep(step, position);
}

/// Reads inode flags that follow the target of a link.
bool SnapshotMatcher::MatchResolved(std::size_t step, std::size_t position) {
    const std::string& given = Path(type.snapshots[step].path);
    const RecordStart* start = text.landmarks.StartFrom(position);
    const std::string_view rest = text.bytes.substr(position, PATH_MAX);
    for (std::size_t length = rest.find(' '); length != std::string_view::npos; length = rest.find(' ', length + 1)) {
        FlagsSnapshot flags;
        flags.path = rest.substr(0, length);
        Cursor cursor(text.bytes, position + length);
        if (!text.budget.Spend(length) || IsRecordBefore(position + length, start)) {
            return false;
        }
        if (TakeFlags(cursor, flags) && flags.failedStep != "realpath" && flags.path != given &&
            !IsEndOfValue(flags.path, given) && Continue(step, cursor.Position(), std::move(flags))) {
            return true;
        }
    }
    return false;
}

bool SnapshotMatcher::Continue(std::size_t step, std::size_t position, Snapshot snapshot) {
    current.push_back(std::move(snapshot));
    const bool isMatched = MatchFrom(step + 1, position);
    current.pop_back();
    return isMatched;
}

bool SnapshotMatcher::Finish(std::size_t position) {
    const std::size_t next = AfterNewlines(text.bytes, position);
    const bool isAtEnd = next == text.bytes.size();
    const bool isClean = isAtEnd || text.landmarks.IsStart(next);
    const bool endsByItself = !current.empty() && std::holds_alternative<ProcessSnapshot>(current.back());
    if (!endsByItself && (!isClean || (isAtEnd && text.isGrowing))) {
        KeepIfLongest(position);
        return false;
    }
    // The callers still remove their own snapshots from `current`, which are moved, not copied.
    const std::size_t size = current.size();
    best = {std::exchange(current, {}), position, true, isClean, nullptr};
    current.resize(size);
    return true;
}

void SnapshotMatcher::KeepIfLongest(std::size_t position) {
    if (current.size() > best.snapshots.size() && text.budget.Spend(current.size() * PER_TRY)) {
        best = {current, position, false, false, nullptr};
    }
}

/// Called when a snapshot is missing. Records of unknown types may lack any snapshot.
bool SnapshotMatcher::SkipStep(std::size_t step, std::size_t position) {
    if (type.name.empty()) {
        return MatchFrom(step + 1, position);
    }
    KeepIfLongest(position);
    return false;
}

const std::string& SnapshotMatcher::Path(PathRole role) {
    std::optional<std::string>& path = paths[static_cast<std::size_t>(role)];
    if (!path) {
        const bool isOfSrc = role == PathRole::Src || role == PathRole::SrcParent;
        const std::string_view own = isOfSrc ? line.src : line.dst;
        path = role == PathRole::Src || role == PathRole::Dst ? std::string(own) : ParentOf(own);
    }
    return *path;
}

}  // namespace TAVO::FileMigrateOrvane::Reader
