#include "snapshot_matcher.h"

#include <libgen.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <utility>

#include "cursor.h"
#include "snapshot_text.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr std::size_t PER_TRY = 32;
/// The text of a label holds no ";": what follows one is never more of it.
constexpr std::string_view LABEL_KEY = "security.selinux";

std::size_t BehindNewlines(std::string_view bytes, std::size_t position) {
    Cursor cursor(bytes, position);
    cursor.SkipNewlines();
    return cursor.Position();
}

/// Whether what could be a resolved path is rather the end of a value with more fragments behind it.
bool IsEndOfValue(std::string_view resolved, const std::string& given) {
    return resolved.ends_with(";" + given) || resolved.find(";llistxattr " + given + ":key=") != std::string_view::npos;
}

std::string ParentOf(std::string_view path) {
    std::string copy(path);
    return dirname(copy.data());  // NOLINT(concurrency-mt-unsafe): the copy is private
}

}  // namespace

SnapshotMatcher::SnapshotMatcher(const RecordText& recordText, const RecordType& recordType,
                                 const InformationLine& informationLine, Credit& sharedCredit,
                                 std::function<bool(const RecordStart&)> isRecordAt)
    : text(recordText),
      type(recordType),
      line(informationLine),
      credit(sharedCredit),
      isRecord(std::move(isRecordAt)) {}

SnapshotMatcher::Result SnapshotMatcher::Match() {
    best.end = line.end;
    if (credit.Spend(line.src.size() + line.dst.size()) && !MatchFrom(0, line.end)) {
        best.stoppedAt = stoppedAt;
    }
    return std::move(best);
}

bool SnapshotMatcher::MatchFrom(std::size_t step, std::size_t position) {
    if (!credit.Spend(PER_TRY)) {
        return Fail(position);
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
    Cursor cursor(text.bytes, BehindNewlines(text.bytes, position));
    return take(cursor, snapshot) ? Continue(step, cursor.Position(), std::move(snapshot))
                                  : FailOrPassOver(step, position);
}

/// Any number of them: of none a value could be read.
bool SnapshotMatcher::MatchAttributes(std::size_t step, std::size_t position) {
    AttributeSnapshot failure;
    failure.path = Path(type.snapshots[step].path);
    Cursor cursor(text.bytes, BehindNewlines(text.bytes, position));
    if (TakeAttributeFailure(cursor, failure.path, failure)) {
        return Continue(step, cursor.Position(), std::move(failure));
    }
    Cursor head(text.bytes, BehindNewlines(text.bytes, position));
    if (!TakeAttributeHead(head, failure.path)) {
        return MatchFrom(step + 1, position);
    }
    const auto before = static_cast<std::ptrdiff_t>(current.size());
    Behind behind = Behind::Another;
    while (behind == Behind::Another) {
        behind = MatchAttribute(step, position);
    }
    current.erase(current.begin() + before, current.end());
    return behind == Behind::TheRest;
}

/// The attribute whose fragment begins at `position` ends at the first ";" that another one of the same path or the
/// whole rest of the record follows. In the first case it is added to `current`, and the position is behind it.
SnapshotMatcher::Behind SnapshotMatcher::MatchAttribute(std::size_t step, std::size_t& position) {
    const std::string& path = Path(type.snapshots[step].path);
    Cursor head(text.bytes, BehindNewlines(text.bytes, position));
    (void)TakeAttributeHead(head, path);
    (void)Fail(position);  // what there is before it, if it has no end
    const std::size_t body = head.Position();
    const RecordStart* start = text.landmarks.StartFrom(body);
    bool isFirst = true;
    std::size_t from = body;
    for (std::size_t end = 0; (end = text.bytes.find(';', from)) != std::string_view::npos; from = end + 1) {
        AttributeSnapshot attribute;
        attribute.path = path;
        if (!credit.Spend(end - from + 1) || IsRecordBefore(end, start)) {
            break;
        }
        if ((!isFirst && !MayBegin(end + 1, path)) || !credit.Spend(end - body) ||
            !ReadAttribute(text.bytes.substr(body, end - body), attribute)) {
            continue;
        }
        const bool isLabel = attribute.key == LABEL_KEY;
        const Behind behind = TryBehind(step, end + 1, std::move(attribute));
        if (behind != Behind::Nothing || isLabel) {
            position = end + 1;
            return behind;
        }
        isFirst = false;
    }
    return Behind::Nothing;
}

/// What fits behind an attribute that ends at `position`.
SnapshotMatcher::Behind SnapshotMatcher::TryBehind(std::size_t step, std::size_t position,
                                                   AttributeSnapshot attribute) {
    Cursor next(text.bytes, BehindNewlines(text.bytes, position));
    const bool isAnother = TakeAttributeHead(next, attribute.path);
    current.emplace_back(std::move(attribute));
    if (isAnother || MatchFrom(step + 1, position)) {
        return isAnother ? Behind::Another : Behind::TheRest;
    }
    current.pop_back();
    return Behind::Nothing;
}

/// Whether a record begins before `end`. @param start  the first start that was not asked about
bool SnapshotMatcher::IsRecordBefore(std::size_t end, const RecordStart*& start) {
    for (; start != nullptr && start->position < end; start = text.landmarks.Next(*start)) {
        if (isRecord && isRecord(*start)) {
            stoppedAt = start;
            return true;
        }
    }
    return false;
}

/// Whether a snapshot or a record may begin there, or nothing more follows.
bool SnapshotMatcher::MayBegin(std::size_t position, std::string_view path) const {
    constexpr std::string_view BEGINNINGS[] = {"/",       "lstat ", "llistxattr ", "file_migrate_orvane ",
                                               "capget ", "type:"};
    const Cursor next(text.bytes, BehindNewlines(text.bytes, position));
    return next.Position() == text.bytes.size() || next.IsAt(path) ||
           std::any_of(std::begin(BEGINNINGS), std::end(BEGINNINGS),
                       [&](std::string_view beginning) { return next.IsAt(beginning); });
}

bool SnapshotMatcher::MatchFlags(std::size_t step, std::size_t position) {
    FlagsSnapshot flags;
    flags.path = Path(type.snapshots[step].path);
    const std::size_t begin = BehindNewlines(text.bytes, position);
    Cursor cursor(text.bytes, begin);
    const bool isAsGiven = cursor.Take(flags.path) && TakeFlags(cursor, flags);
    if (isAsGiven && Continue(step, cursor.Position(), std::move(flags))) {
        return true;
    }
    if (text.bytes.substr(begin).starts_with('/') && MatchResolved(step, begin)) {
        return true;
    }
    return isAsGiven ? false : FailOrPassOver(step, position);
}

/// Inode flags behind the path that a link leads to.
bool SnapshotMatcher::MatchResolved(std::size_t step, std::size_t position) {
    const std::string& given = Path(type.snapshots[step].path);
    const RecordStart* start = text.landmarks.StartFrom(position);
    const std::string_view rest = text.bytes.substr(position, PATH_MAX);
    for (std::size_t length = rest.find(' '); length != std::string_view::npos; length = rest.find(' ', length + 1)) {
        FlagsSnapshot flags;
        flags.path = rest.substr(0, length);
        Cursor cursor(text.bytes, position + length);
        if (!credit.Spend(length) || IsRecordBefore(position + length, start)) {
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
    const std::size_t next = BehindNewlines(text.bytes, position);
    const bool isAtEnd = next == text.bytes.size();
    const bool isClean = isAtEnd || text.landmarks.IsStart(next);
    const bool endsByItself = !current.empty() && std::holds_alternative<ProcessSnapshot>(current.back());
    if (!endsByItself && (!isClean || (isAtEnd && text.isGrowing))) {
        return Fail(position);
    }
    best = {current, position, true, isClean, nullptr};
    return true;
}

bool SnapshotMatcher::Fail(std::size_t position) {
    if (current.size() > best.snapshots.size() && credit.Spend(current.size() * PER_TRY)) {
        best = {current, position, false, false, nullptr};
    }
    return false;
}

/// A type that is not known has any of the snapshots.
bool SnapshotMatcher::FailOrPassOver(std::size_t step, std::size_t position) {
    return type.name.empty() ? MatchFrom(step + 1, position) : Fail(position);
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

}  // namespace TAVO::FileMigrateOrvane
