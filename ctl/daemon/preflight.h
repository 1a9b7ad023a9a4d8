// What orvanectl checks by itself before it sends a request that removes its source: which objects would be lost on the
// way, and whether the source would be lost altogether. It looks at the files directly, as far as its user may read
// them, because the daemon's listings do not show links. The tree may change afterwards. Functions without state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "json_text.h"

namespace TAVO::FileMigrateOrvane::Ctl {

struct Arguments;
struct SubCommand;

/// The objects of a tree that a copy does not carry over.
struct Losses {
    std::uint64_t links = 0;
    std::uint64_t specialFiles = 0;
    std::vector<std::string> firstPaths;  ///< a few of them, for messages
    bool isWhole = true;                  ///< false if a part of the tree could not be read

    [[nodiscard]] std::uint64_t Count() const { return links + specialFiles; }
};

struct Preflight {
    std::string refusal;                ///< why the source would be lost altogether; empty if nothing is wrong
    std::optional<bool> isAcross;       ///< whether a move cannot rename; unset if the tool may not look
    std::optional<Losses> losses;       ///< unset if the request cannot lose links and special files
    std::vector<std::string> warnings;  ///< other things to know before the request is sent

    /// "3 links and 1 special file would be lost: /a/x, /a/y, ..."; empty if nothing would be lost.
    [[nodiscard]] std::string LossText() const;

    /// Sets the keys "lost" and "lost_paths".
    void PutInto(Json& object) const;
};

Preflight Inspect(const SubCommand& command, const Arguments& arguments);

}  // namespace TAVO::FileMigrateOrvane::Ctl
