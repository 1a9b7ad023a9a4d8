#include "record_comparison.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <vector>

#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

enum class Change : std::uint8_t { New, Gone, More, Fewer, Same };
constexpr std::array<const char*, 5> CHANGES = {"new", "gone", "more", "fewer", "same"};

struct Row {
    std::string group;
    std::size_t before = 0;
    std::size_t now = 0;

    [[nodiscard]] Change Kind() const {
        if (!Stays()) {
            return before == 0 ? Change::New : Change::Gone;
        }
        return now == before ? Change::Same : now > before ? Change::More : Change::Fewer;
    }
    [[nodiscard]] bool Stays() const { return before != 0 && now != 0; }
    [[nodiscard]] std::size_t Distance() const { return std::max(before, now) - std::min(before, now); }
    [[nodiscard]] const char* Word() const { return CHANGES.at(static_cast<std::size_t>(Kind())); }
};

/// The groups of both, in the order of the table.
std::vector<Row> RowsOf(const GroupCounts& before, const GroupCounts& now) {
    std::vector<Row> rows;
    for (const auto& [group, count] : before) {
        const auto found = now.find(group);
        rows.push_back({group, count, found == now.end() ? 0 : found->second});
    }
    for (const auto& [group, count] : now) {
        if (!before.contains(group)) {
            rows.push_back({group, 0, count});
        }
    }
    // Groups that are neither new nor gone have one rank.
    const auto rank = [](const Row& row) { return std::min(row.Kind(), Change::More); };
    std::ranges::stable_sort(rows, [&](const Row& one, const Row& other) {
        return rank(one) != rank(other) ? rank(one) < rank(other) : one.Distance() > other.Distance();
    });
    return rows;
}

Row Sum(const GroupCounts& before, const GroupCounts& now) {
    Row sum{"all records"};
    for (const auto& [group, count] : before) {
        sum.before += count;
    }
    for (const auto& [group, count] : now) {
        sum.now += count;
    }
    return sum;
}

std::string Line(const Row& row, const std::string& change) {
    std::array<char, 80> columns{};
    (void)std::snprintf(columns.data(), columns.size(), "%7zu  %7zu  %8s  ", row.before, row.now, change.c_str());
    return columns.data() + Printable(row.group) + "\n";
}

/// "+5", "-2" or "=".
std::string Difference(const Row& row) {
    return row.now == row.before ? "=" : (row.now > row.before ? "+" : "-") + std::to_string(row.Distance());
}

/// @throw Json::exception  if the object is not a summary by the property
GroupCounts CountsIn(const Json& summary, const std::string& by) {
    GroupCounts counts;
    for (const Json& group : summary.at("groups")) {
        counts[TextOf(group, by)] = group.at("count").get<std::size_t>();
    }
    return counts;
}

}  // namespace

std::optional<GroupCounts> ReadSummary(const std::string& path, const std::string& by, std::string& why) {
    std::ifstream file(path);
    if (!file) {
        why = ErrorText(errno);
        return std::nullopt;
    }
    try {
        return CountsIn(Json::parse(file), by);
    } catch (const Json::exception&) {
        why = "not a summary by " + by + "; print one with \"orvanectl records --by " + by + " --json\"";
        return std::nullopt;
    }
}

std::string ComparisonText(const GroupCounts& before, const GroupCounts& now, const std::string& by) {
    const Row sum = Sum(before, now);
    std::string text = " before      now    change  " + by + "\n" + Line(sum, Difference(sum)) + "\n";
    for (const Row& row : RowsOf(before, now)) {
        text += Line(row, row.Stays() ? Difference(row) : row.Word());
    }
    return text;
}

Json ComparisonJson(const GroupCounts& before, const GroupCounts& now, const std::string& by) {
    const Row sum = Sum(before, now);
    Json object{{"by", by}, {"before", sum.before}, {"now", sum.now}, {"groups", Json::array()}};
    for (const Row& row : RowsOf(before, now)) {
        Json group;
        PutText(group, by, row.group);
        group["before"] = row.before;
        group["now"] = row.now;
        group["change"] = row.Word();
        object["groups"].push_back(std::move(group));
    }
    return object;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
