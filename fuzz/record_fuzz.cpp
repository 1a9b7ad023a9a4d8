// Parses any bytes as a record file, whole and growing, and explains every record.
#include "explain.h"
#include "record_parser.h"

using namespace TAVO::FileMigrateOrvane::Reader;

static void Require(bool condition) {
    condition ? void() : __builtin_trap();
}

/// Every byte belongs to a record, is skipped, or is a newline between records. Records and skipped ranges ascend and
/// do not overlap.
static void RequireCoverage(std::string_view bytes, const ParsedRecords& parsed) {
    Require(parsed.consumed <= bytes.size());
    auto record = parsed.records.begin();
    auto skipped = parsed.skipped.begin();
    for (std::size_t at = 0; at < parsed.consumed;) {
        std::size_t length = 1;
        if (record != parsed.records.end() && record->offset == at) {
            length = record++->length;
        } else if (skipped != parsed.skipped.end() && skipped->offset == at) {
            length = skipped++->length;
        } else {
            Require(bytes[at] == '\n');
        }
        Require(length > 0);
        at += length;
        Require(at <= parsed.consumed);
    }
    Require(record == parsed.records.end() && skipped == parsed.skipped.end());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    for (const Input input : {Input::Whole, Input::Growing}) {
        const ParsedRecords parsed = ParseRecords(bytes, input);
        RequireCoverage(bytes, parsed);
        Require(input == Input::Growing || parsed.consumed == size);
        for (const Record& record : parsed.records) {
            (void)LikelyCause(record);
            for (const Snapshot& snapshot : record.snapshots) {
                const auto* const stat = std::get_if<StatSnapshot>(&snapshot);
                (void)(stat != nullptr ? StatInWords(*stat) : InodeFlagsInWords(static_cast<std::uint32_t>(size)));
            }
        }
    }
    return 0;
}
