#include "failure_cause.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "advice.h"
#include "explain.h"
#include "record_files.h"
#include "record_filter.h"
#include "sub_command.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

/// The records of one request.
struct Found {
    std::size_t count = 0;
    std::size_t repeats = 0;  ///< records in a row that equal the first
    Reader::Record first;
};

bool IsSameFailure(const Reader::Record& one, const Reader::Record& other) {
    return one.type == other.type && one.errorNumber == other.errorNumber && one.src == other.src &&
           one.dst == other.dst;
}

off_t SizeOf(const char* file) {
    struct stat st {};
    return stat(file, &st) == 0 ? st.st_size : 0;
}

/// Whether the record was written before the mark. A file that is shorter now was rotated, and has only new records.
bool IsOlder(const Reader::LocatedRecord& located, const RecordMark& mark) {
    const auto* const file = std::ranges::find(RECORD_FILES, located.file);
    if (file == RECORD_FILES.end()) {
        return false;
    }
    const off_t before = mark.sizes[static_cast<std::size_t>(file - RECORD_FILES.begin())];
    return std::cmp_less(located.record.offset, before) && SizeOf(*file) >= before;
}

/// Whether a record without a path is about the request's user, group or mode, for example about a user that does not
/// exist.
bool IsAboutOwnerOrMode(const Reader::Record& record, const Arguments& arguments) {
    const std::pair<const std::string&, const std::string&> fields[] = {
        {record.user, arguments.user}, {record.group, arguments.group}, {record.perm, arguments.mode}};
    const auto isSame = [](const auto& field) { return !field.first.empty() && field.first == field.second; };
    const auto mayBeSame = [](const auto& field) { return field.first.empty() || field.first == field.second; };
    return record.src.empty() && record.dst.empty() && std::ranges::any_of(fields, isSame) &&
           std::ranges::all_of(fields, mayBeSame);
}

/// The records of the filter's path; without one, those about the owner or the mode of the request.
/// @param hint  set if a record file cannot be read
Found FindRecords(const RecordFilter& filter, const Arguments& arguments, const RecordMark& before, std::string& hint) {
    Reader::RecordStream stream(Reader::AllRecordPaths(), Reader::Reading::Once);
    Found found;
    while (std::optional<Reader::LocatedRecord> next = stream.Next()) {
        if (!Matches(filter, next->record) || IsOlder(*next, before) ||
            (filter.path.empty() && !IsAboutOwnerOrMode(next->record, arguments))) {
            continue;
        }
        if (found.count++ == 0) {
            found.first = std::move(next->record);
            found.repeats = 1;
        } else if (found.count == found.repeats + 1 && IsSameFailure(next->record, found.first)) {
            ++found.repeats;
        }
    }
    for (const Reader::ReadTrouble& trouble : stream.TakeTroubles()) {
        if (trouble.errorNumber != 0) {
            hint = "the records may show the cause, but you may not read them: " + AccessHint(trouble.file);
        }
    }
    return found;
}

void Put(Answer& answer, const Found& found, const RecordFilter& filter) {
    const Reader::Cause cause = Reader::LikelyCause(found.first);
    answer.fields["records"] = found.count;
    if (!cause.word.empty()) {
        answer.message += "\nlikely cause: " + Printable(cause.text) +
                          (found.repeats > 1 ? " (x" + std::to_string(found.repeats) + ")" : "");
        answer.fields["cause"] = cause.word;
        PutText(answer.fields, "cause_path", cause.path);
        PutText(answer.fields, "likely_cause", cause.text);
    }
    if (const std::string check = Reader::ToCheck(found.first); !check.empty()) {
        answer.message += "\nto check: " + Printable(check);
    }
    answer.hint = "orvanectl records -v --since '" + TimeText(filter.since, ' ') + "'" +
                  (filter.path.empty() ? "" : " --path " + Printable(Reader::Quoted(filter.path))) +
                  (found.count == 1 ? " shows the record" : " shows the records");
}

}  // namespace

RecordMark::RecordMark() : times(Now()) {
    std::ranges::transform(RECORD_FILES, sizes.begin(), SizeOf);
}

void AddCause(Answer& answer, const Arguments& arguments, const RecordMark& before) {
    for (const std::string& path : {arguments.path, arguments.destination, std::string()}) {
        RecordFilter filter;
        filter.since = before.times;
        filter.path = path;
        std::string hint;
        const Found found = FindRecords(filter, arguments, before, hint);
        if (!hint.empty()) {
            answer.hint = hint;
        }
        if (found.count > 0) {
            Put(answer, found, filter);
            return;
        }
    }
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
