// The objects of a dry run, one by one, with what would happen to each. Used by one thread.
#pragma once

#include <string>
#include <vector>

#include "json_text.h"
#include "preflight.h"
#include "sub_command.h"

namespace TAVO::FileMigrateOrvane::Ctl {

/// What is at the destination of an object.
enum class Obstacle { Nothing, Object, DirectoryToMerge };

class Itemizer {
public:
    /// @param asked  whether the objects are to be listed; otherwise nothing is kept
    Itemizer(bool asked, const SubCommand& itsCommand, const Preflight& preflight);

    /// @param path  absolute, at the source
    void Add(const std::string& path, bool isDirectory, Obstacle obstacle);

    /// One line for each object: "replace  /data/app/f". The names of directories end in "/".
    [[nodiscard]] std::string Text() const;

    /// An array of objects with "action", "path" and "directory".
    [[nodiscard]] Json ToJson() const;

private:
    struct Item {
        const char* action;
        std::string path;
        bool isDirectory;
    };

    [[nodiscard]] const char* ActionOn(const std::string& path, bool isDirectory, Obstacle obstacle) const;

    const SubCommand& command;
    bool isAsked;
    bool copies;  ///< it copies, so that links and special files do not arrive
    std::vector<Item> items;
};

}  // namespace TAVO::FileMigrateOrvane::Ctl
