// Prints the selected records on standard output, one by one or counted. One object per run of the program, because it
// gives standard output its buffer; used by the main thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "pager.h"
#include "record_input.h"
#include "record_page.h"
#include "record_summary.h"
#include "record_table.h"
#include "records_options.h"

namespace TAVO::FileMigrateOrvane::Ctl {

class RecordOutput {
public:
    /// @param wanted         must outlive the object
    /// @param widthForHosts  columns for the names of the machines
    RecordOutput(const RecordsOptions& wanted, std::size_t widthForHosts);

    /// Makes the columns wide enough for a record that is shown later.
    void MakeRoomFor(const Reader::Record& record);
    /// Prints the record, or adds it to the summary or the page.
    void Show(const Reader::LocatedRecord& located);

    /// Prints the summary or the page, if one is wanted.
    /// @param before      the counts to compare with, if any
    /// @param mayBeEmpty  whether to print a summary of no records
    void ShowSummary(const std::optional<GroupCounts>& before, bool mayBeEmpty);

    [[nodiscard]] bool HasShown() const { return hasShown; }

    /// Writes what is buffered, and waits until the user leaves the pager.
    /// @return false if standard output was closed or the disk is full
    [[nodiscard]] bool Flush();

private:
    void Write(const std::string& text);

    const RecordsOptions& options;
    std::size_t hostWidth;
    TableStyle style;
    RecordSummary summary;
    RecordPage page;
    Pager pager;
    bool hasShown = false;
    bool hasWritten = false;
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
