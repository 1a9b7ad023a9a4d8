#include "record_output.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "record_comparison.h"
#include "record_json.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr std::size_t BUFFER_SIZE = std::size_t{1} << 16U;

bool IsColoured(const std::string& when) {
    return when == "always" || (when == "auto" && MayColour(STDOUT_FILENO));
}

}  // namespace

RecordOutput::RecordOutput(const RecordsOptions& wanted, std::size_t widthForHosts)
    : options(wanted),
      hostWidth(widthForHosts),
      style{IsColoured(wanted.colour), wanted.form == Form::Verbose},
      summary(wanted.by) {
    static std::array<char, BUFFER_SIZE> buffer;  // used until the program ends
    (void)std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
}

void RecordOutput::Show(const Reader::LocatedRecord& located) {
    hasShown = true;
    if (options.isSummary) {
        summary.Add(located);
    } else if (options.form == Form::Html) {
        page.Add(located);
    } else if (options.form == Form::JsonLines) {
        PrintJsonLine(ToJson(located));
    } else {
        MakeRoomFor(located.record);
        const std::string text = RecordInWords(located.record, style);
        std::string host = Printable(located.host);
        host.resize(std::max(host.size(), hostWidth), ' ');
        Write(host.empty() ? text : host + "  " + text);
    }
}

void RecordOutput::MakeRoomFor(const Reader::Record& record) {
    Widen(style, record);
}

void RecordOutput::ShowSummary(const std::optional<GroupCounts>& before, bool mayBeEmpty) {
    if (options.form == Form::Html) {
        Write(page.Html());
        return;
    }
    if (!options.isSummary) {
        return;
    }
    if (options.form == Form::JsonLines) {
        PrintJsonLine(before ? ComparisonJson(*before, summary.Counts(), options.by) : summary.ToJson());
    } else if (before) {
        Write(ComparisonText(*before, summary.Counts(), options.by));
    } else if (hasShown || mayBeEmpty) {
        Write(summary.Text());
    }
}

void RecordOutput::Write(const std::string& text) {
    if (options.usesPager && options.form != Form::Html && !hasWritten) {
        pager.Start();
    }
    hasWritten = true;
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
}

bool RecordOutput::Flush() {
    pager.End();
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
