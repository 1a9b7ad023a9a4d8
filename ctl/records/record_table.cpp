#include "record_table.h"

#include <climits>
#include <cwchar>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "record_time.h"
#include "explain.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane {
namespace {

constexpr std::size_t ERROR_WIDTH = 9;     // ENOTEMPTY
constexpr std::size_t FAILURE_WIDTH = 16;  // most of them; a longer one shifts its line

const char* Arrow() {
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(bytes, L'\u2192', &state);  // NOLINT(concurrency-mt-unsafe): one thread
    return length == static_cast<std::size_t>(-1) ? " -> " : " \u2192 ";
}

/// What follows a column's text: two blanks at least.
std::string Padding(std::size_t size, std::size_t width) {
    return std::string(2 + (size < width ? width - size : 0), ' ');
}

std::string Parent(const std::string& path) {
    return std::filesystem::path(path).parent_path().native();
}

/// What a snapshot's path is to the record.
std::string_view Role(const Record& record, const std::string& path) {
    if (path == record.src) {
        return record.dst.empty() ? "object " : "source ";
    }
    if (path == record.dst) {
        return "destination ";
    }
    const bool isSourceParent = path == Parent(record.src);
    const bool isDestinationParent = !record.dst.empty() && path == Parent(record.dst);
    if (isSourceParent == isDestinationParent || record.dst.empty()) {
        return isSourceParent ? "parent " : "";
    }
    return isSourceParent ? "source's parent " : "destination's parent ";
}

/// The decoded lines of a record's snapshots, below a heading for each path.
class SnapshotLines {
public:
    SnapshotLines(const Record& toShow, bool isInColour) : record(toShow), isColoured(isInColour) {}

    void operator()(const StatSnapshot& stat) {
        Head(stat.path);
        if (stat.errorNumber != 0) {
            missing = stat.errorNumber;
            Add(Toned(Tone::Bad, ErrorText(stat.errorNumber), isColoured));
        } else {
            Add(StatInWords(stat));
        }
    }

    void operator()(const AttributeSnapshot& attribute) {
        Head(attribute.path);
        if (!attribute.key.empty()) {
            Add(Printable(attribute.key) + ": " + (attribute.value ? Printable(*attribute.value) : "(empty)"));
        } else if (attribute.errorNumber != missing) {
            Add("attributes: none, or not listed");  // without any, the number is a leftover
        }
    }

    void operator()(const FlagsSnapshot& flags) {
        if (flags.failedStep.empty()) {
            Add("inode flags " + InodeFlagsInWords(flags.flags) + Resolved(flags.path));
        } else if (flags.errorNumber != missing) {
            Add("inode flags not read, " + flags.failedStep + ": " + ErrorText(flags.errorNumber) +
                Resolved(flags.path));
        }
    }

    void operator()(const ProcessSnapshot& process) {
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

    void operator()(const LabelResult& label) {
        Heading("the label library");
        Add("returned " + std::to_string(label.ret));
    }

    std::string text;

private:
    void Head(const std::string& ofPath) {
        if (path != ofPath) {
            path = ofPath;
            Heading(std::string(Role(record, path)) + Printable(path));
        }
    }

    void Heading(const std::string& words) {
        text += "    " + Toned(Tone::Strong, words, isColoured) + "\n";
        missing = 0;
        shown.clear();
    }

    /// An attribute that could not be read repeats the one before it; two parents can be one directory.
    void Add(const std::string& line) {
        if (shown.insert(line).second) {
            text += "      " + line + "\n";
        }
    }

    void AddCapabilities(const char* set, const std::string& digits) {
        std::string names;
        for (const CapabilityReading& reading : CapabilityReadings(digits)) {
            names += (names.empty() ? "" : ", or ") + reading.names;
        }
        Add(std::string(set) + " capabilities " + (names.empty() ? "unknown: 0x" + Printable(digits) : names));
    }

    /// The flags are those of what a link leads to.
    [[nodiscard]] std::string Resolved(const std::string& ofFlags) const {
        return ofFlags == path ? "" : " of " + Printable(ofFlags);
    }

    const Record& record;
    bool isColoured;
    std::string path;             ///< of the heading
    int missing = 0;              ///< why the object could not be looked at: not said again for its attributes
    std::set<std::string> shown;  ///< below the heading
};

std::string Details(const Record& record, const TableStyle& style) {
    SnapshotLines lines(record, style.isColoured);
    for (const auto& [name, text] :
         {std::pair("likely cause: ", LikelyCause(record)), {"to check: ", ToCheck(record)}}) {
        if (!text.empty()) {
            lines.text += "    " + Toned(Tone::Strong, name + Printable(text), style.isColoured) + "\n";
        }
    }
    for (const Snapshot& snapshot : record.snapshots) {
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

std::string ErrorColumn(const Record& record) {
    return record.errorNumber ? ErrorName(*record.errorNumber) : "-";
}

std::string ObjectsColumn(const Record& record) {
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

std::string RecordInWords(const Record& record, const TableStyle& style) {
    const std::string error = ErrorColumn(record);
    const std::string failure = Printable(FailureInWords(record.type));
    std::string text = Toned(Tone::Faint, TimeText(record.times, ' '), style.isColoured) + "  " +
                       Toned(Tone::Bad, error, style.isColoured) + Padding(error.size(), ERROR_WIDTH) + failure +
                       Padding(failure.size(), FAILURE_WIDTH) + ObjectsColumn(record);
    if (record.isAmbiguous) {
        text += Toned(Tone::Warning, "  (ambiguous)", style.isColoured);
    }
    text += "\n";
    return style.isVerbose ? text + Details(record, style) : text;
}

}  // namespace TAVO::FileMigrateOrvane
