// Prints the selected records on standard output, one by one or counted. One object per run of the program, because it
// gives standard output its buffer; used by the main thread.
#pragma once

#include <cstddef>
#include <optional>

#include "record_input.h"
#include "record_summary.h"
#include "record_table.h"
#include "records_options.h"

namespace TAVO::FileMigrateOrvane::Ctl {

class RecordOutput {
public:
    /// @param wanted         must outlive the object
    /// @param widthForHosts  columns for the names of the machines
    RecordOutput(const RecordsOptions& wanted, std::size_t widthForHosts);

    /// Prints the record, or counts it if a summary is wanted.
    void Show(const Reader::LocatedRecord& located);

    /// @param before      the counts to compare with, if any
    /// @param mayBeEmpty  whether to print a summary of no records
    void ShowSummary(const std::optional<GroupCounts>& before, bool mayBeEmpty) const;

    [[nodiscard]] bool HasShown() const { return hasShown; }

    /// False if standard output was closed or the disk is full.
    [[nodiscard]] static bool Flush();

private:
    const RecordsOptions& options;
    std::size_t hostWidth;
    TableStyle style;
    RecordSummary summary;
    bool hasShown = false;
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
