#include "record_summary.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "explain.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

/// "/data/app" for "/data/app/el1/base". Deeper directories belong to single applications or users.
std::string TopDirectory(const Reader::Record& record) {
    const std::string& path = record.src.empty() ? record.dst : record.src;
    std::size_t end = 0;
    for (int components = 0; components < 2 && end != std::string::npos; ++components) {
        end = path.find('/', path.find_first_not_of('/', end));
    }
    return path.substr(0, end);
}

/// The entries of a map of tallies, the most frequent ones first.
template <typename Map>
std::vector<const typename Map::value_type*> ByFrequency(const Map& tallies) {
    std::vector<const typename Map::value_type*> entries;
    entries.reserve(tallies.size());
    for (const auto& entry : tallies) {
        entries.push_back(&entry);
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto* one, const auto* other) { return one->second.count > other->second.count; });
    return entries;
}

std::string ErrorColumn(const std::optional<int>& errorNumber) {
    return errorNumber ? ErrorName(*errorNumber) : "-";
}

std::string ValueOf(const std::string& property, const Reader::LocatedRecord& located) {
    const Reader::Record& record = located.record;
    if (property == "host") {
        return located.host;
    }
    if (property == "cause") {
        const std::string_view word = Reader::LikelyCause(record).word;
        return word.empty() ? "unknown" : std::string(word);
    }
    if (property == "type") {
        return record.type;
    }
    return property == "day" ? TimeText(record.times, ' ').substr(0, 10) : ErrorColumn(record.errorNumber);
}

}  // namespace

void RecordSummary::Tally::Add(const std::string& times) {
    ++count;
    first = first.empty() ? times : std::min(first, times);
    last = std::max(last, times);
}

std::string RecordSummary::Tally::Text() const {
    const std::string number = std::to_string(count);
    return std::string(number.size() < 7 ? 7 - number.size() : 0, ' ') + number + "  " + TimeText(first, ' ') + "  " +
           TimeText(last, ' ') + "  ";
}

Json RecordSummary::Tally::PutInto(Json object) const {
    object["count"] = count;
    object["first"] = first.empty() ? Json() : Json(TimeText(first, 'T'));
    object["last"] = last.empty() ? Json() : Json(TimeText(last, 'T'));
    return object;
}

void RecordSummary::Add(const Reader::LocatedRecord& located) {
    const Reader::Record& record = located.record;
    all.Add(record.times);
    if (!by.empty()) {
        groups[ValueOf(by, located)].Add(record.times);
        return;
    }
    failures[{record.type, record.errorNumber}].Add(record.times);
    directories[TopDirectory(record)].Add(record.times);
}

GroupCounts RecordSummary::Counts() const {
    GroupCounts counts;
    for (const auto& [group, tally] : groups) {
        counts[group] = tally.count;
    }
    return counts;
}

std::string RecordSummary::Text() const {
    if (all.count == 0) {
        return "no records\n";
    }
    std::string text = "  count  first                last\n" + all.Text() + "all records\n\n";
    if (!by.empty()) {
        for (const auto* entry : ByFrequency(groups)) {
            text += entry->second.Text() + Printable(entry->first) + "\n";
        }
        return text;
    }
    std::size_t width = 0;
    for (const auto& [failure, tally] : failures) {
        width = std::max(width, ErrorColumn(failure.second).size());
    }
    for (const auto* entry : ByFrequency(failures)) {
        const auto& [type, errorNumber] = entry->first;
        std::string error = ErrorColumn(errorNumber);
        error.resize(width, ' ');
        text += entry->second.Text() + error + "  " + Printable(Reader::FailureInWords(type)) + "\n";
    }
    text += "\n";
    for (const auto* entry : ByFrequency(directories)) {
        text += entry->second.Text() + (entry->first.empty() ? "(no path)" : Printable(entry->first)) + "\n";
    }
    return text;
}

Json RecordSummary::ToJson() const {
    Json summary = all.PutInto({});
    if (!by.empty()) {
        summary["groups"] = Json::array();
        for (const auto* entry : ByFrequency(groups)) {
            Json group;
            PutText(group, by, entry->first);
            summary["groups"].push_back(entry->second.PutInto(std::move(group)));
        }
        return summary;
    }
    summary["failures"] = Json::array();
    for (const auto* entry : ByFrequency(failures)) {
        const auto& [type, errorNumber] = entry->first;
        Json failure;
        PutText(failure, "type", type);
        PutText(failure, "failure", Reader::FailureInWords(type));
        failure["errno"] = errorNumber ? Json(*errorNumber) : Json();
        failure["error"] = errorNumber ? Json(ErrorName(*errorNumber)) : Json();
        summary["failures"].push_back(entry->second.PutInto(std::move(failure)));
    }
    summary["directories"] = Json::array();
    for (const auto* entry : ByFrequency(directories)) {
        Json directory;
        PutText(directory, "directory", entry->first);
        summary["directories"].push_back(entry->second.PutInto(std::move(directory)));
    }
    return summary;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
