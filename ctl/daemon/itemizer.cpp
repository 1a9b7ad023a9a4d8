#include "itemizer.h"

#include <sys/stat.h>

#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr std::size_t ACTION_WIDTH = 9;

/// The daemon's listings do not distinguish links and special files from regular files.
bool IsLinkOrSpecial(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
}

}  // namespace

Itemizer::Itemizer(bool asked, const SubCommand& itsCommand, const Preflight& preflight)
    : command(itsCommand),
      isAsked(asked),
      copies(itsCommand.Is(TakesDestination) && (!itsCommand.Is(Moves) || preflight.losses)) {}

const char* Itemizer::ActionOn(const std::string& path, bool isDirectory, Obstacle obstacle) const {
    if (!command.Is(TakesDestination)) {
        return "remove";
    }
    if (copies && !isDirectory && IsLinkOrSpecial(path)) {
        return command.Is(RemovesSource) ? "lose" : "skip";
    }
    return obstacle == Obstacle::Nothing ? "create" : obstacle == Obstacle::Object ? "replace" : "merge";
}

void Itemizer::Add(const std::string& path, bool isDirectory, Obstacle obstacle) {
    if (isAsked) {
        items.push_back({ActionOn(path, isDirectory, obstacle), path, isDirectory});
    }
}

std::string Itemizer::Text() const {
    std::string text;
    for (const Item& item : items) {
        std::string action = item.action;
        action.resize(ACTION_WIDTH, ' ');
        text += action + Printable(item.path) + (item.isDirectory ? "/\n" : "\n");
    }
    return text;
}

Json Itemizer::ToJson() const {
    Json array = Json::array();
    for (const Item& item : items) {
        Json object{{"action", item.action}};
        PutText(object, "path", item.path);
        object["directory"] = item.isDirectory;
        array.push_back(std::move(object));
    }
    return array;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
