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

void Write(const std::string& text) {
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace

RecordOutput::RecordOutput(const RecordsOptions& wanted, std::size_t widthForHosts)
    : options(wanted), hostWidth(widthForHosts), style{MayColour(STDOUT_FILENO), wanted.isVerbose}, summary(wanted.by) {
    static std::array<char, BUFFER_SIZE> buffer;  // used until the program ends
    (void)std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
}

void RecordOutput::Show(const Reader::LocatedRecord& located) {
    hasShown = true;
    if (options.isSummary) {
        summary.Add(located);
    } else if (options.isJson) {
        PrintJsonLine(ToJson(located));
    } else {
        const std::string text = RecordInWords(located.record, style);
        std::string host = Printable(located.host);
        host.resize(std::max(host.size(), hostWidth), ' ');
        Write(host.empty() ? text : host + "  " + text);
    }
}

void RecordOutput::ShowSummary(const std::optional<GroupCounts>& before, bool mayBeEmpty) const {
    if (options.isJson) {
        PrintJsonLine(before ? ComparisonJson(*before, summary.Counts(), options.by) : summary.ToJson());
    } else if (before) {
        Write(ComparisonText(*before, summary.Counts(), options.by));
    } else if (hasShown || mayBeEmpty) {
        Write(summary.Text());
    }
}

bool RecordOutput::Flush() {
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
