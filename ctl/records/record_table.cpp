#include "record_table.h"

#include <algorithm>
#include <climits>
#include <cwchar>
#include <set>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "explain.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

const char* Arrow() {
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(bytes, L'\u2192', &state);  // NOLINT(concurrency-mt-unsafe): one thread
    return length == static_cast<std::size_t>(-1) ? " -> " : " \u2192 ";
}

/// The blanks after a column's text, at least two.
std::string Padding(std::size_t size, std::size_t width) {
    return std::string(2 + (size < width ? width - size : 0), ' ');
}

/// The decoded snapshots of a record, with a heading for each path.
class SnapshotLines {
public:
    SnapshotLines(const Reader::Record& toShow, bool isInColour) : record(toShow), isColoured(isInColour) {}

    void operator()(const Reader::StatSnapshot& stat) {
        Head(stat.path);
        if (stat.errorNumber != 0) {
            missing = stat.errorNumber;
            Add(Toned(Tone::Bad, ErrorText(stat.errorNumber), isColoured));
        } else {
            Add(Reader::StatInWords(stat));
        }
    }

    void operator()(const Reader::AttributeSnapshot& attribute) {
        Head(attribute.path);
        if (!attribute.key.empty()) {
            Add(Printable(attribute.key) + ": " + (attribute.value ? Printable(*attribute.value) : "(empty)"));
        } else if (attribute.errorNumber != missing) {
            Add("attributes: none, or not listed");  // without attributes the error number is meaningless
        }
    }

    void operator()(const Reader::FlagsSnapshot& flags) {
        if (flags.failedStep.empty()) {
            Add("inode flags " + Reader::InodeFlagsInWords(flags.flags) + Resolved(flags.path));
        } else if (flags.errorNumber != missing) {
            Add("inode flags not read, " + flags.failedStep + ": " + ErrorText(flags.errorNumber) +
                Resolved(flags.path));
        }
    }

    void operator()(const Reader::ProcessSnapshot& process) {
        Heading("the daemon");
        if (process.errorNumber != 0) {
            Add("capabilities not read: " + ErrorText(process.errorNumber));
            return;
        }
        Add("euid " + std::to_string(process.euid) + " egid " + std::to_string(process.egid));
        const bool isOne = process.effective == process.permitted;
        AddCapabilities(isOne ? "effective and permitted" : "effective", process.effective);
        if (!isOne) {
            AddCapabilities("permitted", process.permitted);
        }
        AddCapabilities("inheritable", process.inheritable);
    }

    void operator()(const Reader::LabelResult& label) {
        Heading("the label library");
        Add("returned " + std::to_string(label.ret));
    }

    std::string text;

private:
    void Head(const std::string& ofPath) {
        if (path != ofPath) {
            path = ofPath;
            const std::string_view role = Reader::RoleOf(record, path);
            Heading(std::string(role).append(role.empty() ? "" : " ").append(Printable(path)));
        }
    }

    void Heading(const std::string& words) {
        text += "    " + Toned(Tone::Strong, words, isColoured) + "\n";
        missing = 0;
        shown.clear();
    }

    /// Drops repeated lines: an unreadable attribute repeats the previous one, and both parents may be one directory.
    void Add(const std::string& line) {
        if (shown.insert(line).second) {
            text += "      " + line + "\n";
        }
    }

    void AddCapabilities(const char* set, const std::string& digits) {
        std::string names;
        for (const Reader::CapabilityReading& reading : Reader::CapabilityReadings(digits)) {
            names += (names.empty() ? "" : ", or ") + reading.names;
        }
        Add(std::string(set) + " capabilities " + (names.empty() ? "unknown: 0x" + Printable(digits) : names));
    }

    /// The resolved path, if the flags are those of a link's target.
    [[nodiscard]] std::string Resolved(const std::string& ofFlags) const {
        return ofFlags == path ? "" : " of " + Printable(ofFlags);
    }

    const Reader::Record& record;
    bool isColoured;
    std::string path;             ///< path in the last heading
    int missing = 0;              ///< error of lstat on the path, which is not repeated for its attributes
    std::set<std::string> shown;  ///< lines below the last heading
};

std::string Details(const Reader::Record& record, const TableStyle& style) {
    SnapshotLines lines(record, style.isColoured);
    for (const auto& [name, text] :
         {std::pair("likely cause: ", Reader::LikelyCause(record).text), {"to check: ", Reader::ToCheck(record)}}) {
        if (!text.empty()) {
            lines.text += "    " + Toned(Tone::Strong, name + Printable(text), style.isColoured) + "\n";
        }
    }
    for (const Reader::Snapshot& snapshot : record.snapshots) {
        std::visit(lines, snapshot);
    }
    return lines.text;
}

void AppendField(std::string& text, const char* name, const std::string& value) {
    if (!value.empty()) {
        text.append(text.empty() ? "" : " ").append(name).append("=").append(Printable(value));
    }
}

}  // namespace

void Widen(TableStyle& style, const Reader::Record& record) {
    style.errorWidth = std::max(style.errorWidth, ErrorColumn(record).size());
    style.failureWidth = std::max(style.failureWidth, Printable(Reader::FailureInWords(record.type)).size());
}

std::string ErrorColumn(const Reader::Record& record) {
    return record.errorNumber ? ErrorName(*record.errorNumber) : "-";
}

std::string ObjectsColumn(const Reader::Record& record) {
    std::string text = Printable(record.src);
    if (!record.dst.empty()) {
        text += Arrow() + Printable(record.dst);
    }
    AppendField(text, "user", record.user);
    AppendField(text, "group", record.group);
    AppendField(text, "mode", record.perm);
    AppendField(text, "option", record.recurseOpt);
    if (!record.refusedField.empty()) {
        AppendField(text, "field", record.refusedField == "dts" ? "destination" : record.refusedField);
        AppendField(text, "value", record.refusedValue);
    }
    return text;
}

std::string RecordInWords(const Reader::Record& record, const TableStyle& style) {
    const std::string error = ErrorColumn(record);
    const std::string failure = Printable(Reader::FailureInWords(record.type));
    std::string text = Toned(Tone::Faint, TimeText(record.times, ' '), style.isColoured) + "  " +
                       Toned(Tone::Bad, error, style.isColoured) + Padding(error.size(), style.errorWidth) + failure +
                       Padding(failure.size(), style.failureWidth) + ObjectsColumn(record);
    if (record.isAmbiguous) {
        text += Toned(Tone::Warning, "  (ambiguous)", style.isColoured);
    }
    text += "\n";
    return style.isVerbose ? text + Details(record, style) : text;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
