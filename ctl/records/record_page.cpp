#include "record_page.h"

#include <langinfo.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "explain.h"
#include "record_table.h"
#include "text.h"
#include "time_chart.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr std::size_t KEPT = 50;  // records shown for each group

constexpr const char* STYLE = R"(
:root { color-scheme: light dark; --back: #fff; --text: #1b1b1b; --faint: #5f6368; --line: #d8dadd; --bar: #2f6db5;
  --bad: #a8271c; }
@media (prefers-color-scheme: dark) { :root { --back: #16181b; --text: #e6e6e6; --faint: #a0a5ab; --line: #3a3e44;
  --bar: #76aef0; --bad: #ff9085; } }
body { margin: 0 auto; max-width: 60rem; padding: 1rem; background: var(--back); color: var(--text);
  font: 1rem/1.5 system-ui, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.5rem; margin: 0; } h2 { font-size: 1.15rem; margin: 2rem 0 .5rem; }
p { margin: .25rem 0; color: var(--faint); }
svg { display: block; width: 100%; height: 10rem; border-bottom: 1px solid var(--line); fill: var(--bar); }
.axis { display: flex; justify-content: space-between; font-size: .85rem; }
details { border-top: 1px solid var(--line); }
summary { display: grid; grid-template-columns: 5rem 1fr 1.5rem; padding: .4rem 0; cursor: pointer; }
summary::after { content: "+"; color: var(--faint); text-align: right; }
details[open] > summary::after { content: "-"; }
summary b { text-align: right; padding-right: 1rem; font-variant-numeric: tabular-nums; }
summary span { padding-bottom: 4px; background: linear-gradient(var(--bar), var(--bar)) 0 100%/var(--share) 3px no-repeat; }
ul { margin: 0 0 1rem; padding: 0 0 0 1rem; list-style: none; font-size: .9rem; }
li { padding: .4rem 0; } li + li { border-top: 1px dotted var(--line); }
code { font: .85rem ui-monospace, monospace; } em { color: var(--bad); font-style: normal; font-weight: 600; }
)";

std::string Escaped(std::string_view text) {
    std::string html;
    for (const char byte : text) {
        switch (byte) {
            case '&':
                html += "&amp;";
                break;
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            case '"':
                html += "&quot;";
                break;
            default:
                html += byte;
        }
    }
    return html;
}

/// The record as an item of a list.
std::string Item(const Reader::LocatedRecord& located) {
    const Reader::Record& record = located.record;
    std::string cause = Reader::LikelyCause(record).text;
    if (const std::string check = Reader::ToCheck(record); cause.empty() && !check.empty()) {
        cause = "to check: " + check;
    }
    std::string item = "<li>" + Escaped(TimeText(record.times, ' ')) + " <em>" + Escaped(ErrorColumn(record)) +
                       "</em> " + Escaped(Printable(Reader::FailureInWords(record.type)));
    item += located.host.empty() ? "" : " on " + Escaped(Printable(located.host));
    item += "<br><code>" + Escaped(ObjectsColumn(record)) + "</code>";
    return item + (cause.empty() ? "" : "<br>" + Escaped(Printable(cause))) + "</li>\n";
}

std::string CauseOf(const Reader::Record& record) {
    const std::string_view word = Reader::LikelyCause(record).word;
    return word.empty() ? "unknown" : std::string(word);
}

}  // namespace

void RecordPage::Group::Add(const std::shared_ptr<const std::string>& item) {
    ++count;
    last.push_back(item);
    if (last.size() > KEPT) {
        last.pop_front();
    }
}

void RecordPage::Group::Add(const Group& later) {
    const std::size_t sum = count + later.count;
    std::ranges::for_each(later.last, [this](const auto& item) { Add(item); });
    count = sum;
}

void RecordPage::Add(const Reader::LocatedRecord& located) {
    const std::string& times = located.record.times;
    const auto item = std::make_shared<const std::string>(Item(located));
    first = all.count == 0 ? times : std::min(first, times);
    last = std::max(last, times);
    all.Add(item);
    causes[CauseOf(located.record)].Add(item);
    hosts[located.host.empty() ? "this machine" : located.host].Add(item);
    hours[TimeText(times, ' ').substr(0, 13)].Add(item);
}

/// The groups with their records: by time, or the largest first.
std::string RecordPage::List(const Groups& groups, bool isByTime) {
    std::vector<const Groups::value_type*> entries;
    std::size_t most = 1;
    for (const auto& entry : groups) {
        entries.push_back(&entry);
        most = std::max(most, entry.second.count);
    }
    if (!isByTime) {
        std::ranges::stable_sort(entries, std::greater<>(), [](const auto* entry) { return entry->second.count; });
    }
    std::string html;
    for (const auto* entry : entries) {
        const auto& [name, group] = *entry;
        html += "<details><summary><b>" + std::to_string(group.count) +
                "</b><span style=\"--share:" + std::to_string(group.count * 100 / most) + "%\">" +
                Escaped(Printable(isByTime ? SpanText(name) : name)) + "</span></summary>\n<ul>\n";
        for (const auto& item : group.last) {
            html += *item;
        }
        html += "</ul>\n";
        if (group.count > group.last.size()) {
            html += "<p>The last " + std::to_string(group.last.size()) + " of " + std::to_string(group.count) +
                    " records.</p>\n";
        }
        html += "</details>\n";
    }
    return html;
}

std::string RecordPage::TimeSection() const {
    TimeCounts counts;
    for (const auto& [hour, group] : hours) {
        counts[hour] = group.count;
    }
    counts = FoldForChart(counts);
    const std::size_t length = counts.begin()->first.size();
    Groups folded;
    for (const auto& [hour, group] : hours) {
        folded[hour.substr(0, length)].Add(group);
    }
    return "<h2>By time</h2>\n" + ChartSvg(counts) + "<p class=\"axis\"><span>" +
           Escaped(SpanText(counts.begin()->first)) + "</span><span>" + Escaped(SpanText(counts.rbegin()->first)) +
           "</span></p>\n<details><summary><b>" + std::to_string(all.count) +
           "</b><span>records, one list for each bar</span></summary>\n" + List(folded, /*isByTime=*/true) +
           "</details>\n";
}

std::string RecordPage::Html() const {
    std::string html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"";
    html += nl_langinfo(CODESET);  // NOLINT(concurrency-mt-unsafe): one thread
    html +=
        "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\">\n"
        "<title>Failures of the file migration</title>\n<style>";
    html.append(STYLE).append("</style>\n</head>\n<body>\n<h1>Failures of the file migration</h1>\n");
    if (all.count == 0) {
        return html + "<p>No records.</p>\n</body>\n</html>\n";
    }
    html += "<p>" + std::to_string(all.count) + (all.count == 1 ? " record" : " records") + " of " +
            std::to_string(hosts.size()) + (hosts.size() == 1 ? " machine, " : " machines, ") +
            Escaped(TimeText(first, ' ')) + " to " + Escaped(TimeText(last, ' ')) + "</p>\n";
    return html + TimeSection() + "<h2>By cause</h2>\n" + List(causes, /*isByTime=*/false) + "<h2>By machine</h2>\n" +
           List(hosts, /*isByTime=*/false) + "</body>\n</html>\n";
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
