#include "dry_run.h"

#include <climits>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "client_place.h"
#include "itemizer.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr std::size_t LONGEST_PATH = PATH_MAX - 1;

/// Counts the objects of a tree and those whose names exist at the destination.
class Survey {
public:
    Survey(Client& usedClient, Itemizer& itemizer) : client(usedClient), items(itemizer) {}

    /// Counts everything below a directory.
    /// @param destination  the directory that it would be merged into; empty if there is none
    void CountBelow(const std::string& directory, const std::string& destination) {
        const Listing listing = client.ListDir(directory);
        const std::map<std::string, bool> taken = NamesIn(destination);
        isWhole = isWhole && listing.Succeeded();
        for (const Entry& entry : listing.entries) {
            if (!isWhole) {
                return;
            }
            const auto found = taken.find(entry.name);
            const bool isTaken = found != taken.end();
            const bool isMerged = isTaken && entry.isDirectory && found->second;
            replaced += isTaken && !isMerged ? 1 : 0;
            const std::string path = directory + "/" + entry.name;
            items.Add(path, entry.isDirectory,
                      isMerged  ? Obstacle::DirectoryToMerge
                      : isTaken ? Obstacle::Object
                                : Obstacle::Nothing);
            Count(entry, path, isMerged ? destination + "/" + entry.name : std::string());
        }
    }

    bool IsEmpty(const std::string& directory) { return NamesIn(directory).empty() && isWhole; }

    std::uint64_t directories = 0;
    std::uint64_t others = 0;
    std::uint64_t replaced = 0;
    bool isWhole = true;  ///< false if a listing failed or a path is too long; the counts are then incomplete

private:
    void Count(const Entry& entry, const std::string& path, const std::string& destination) {
        ++(entry.isDirectory ? directories : others);
        if (entry.isDirectory && path.size() > LONGEST_PATH) {
            isWhole = false;
        } else if (entry.isDirectory) {
            CountBelow(path, destination);
        }
    }

    /// The names in a directory, and whether each one is a directory.
    std::map<std::string, bool> NamesIn(const std::string& directory) {
        std::map<std::string, bool> names;
        if (directory.empty() || directory.size() > LONGEST_PATH) {
            return names;
        }
        const Listing listing = client.ListDir(directory);
        isWhole = isWhole && listing.Succeeded();
        for (const Entry& entry : listing.entries) {
            names.emplace(entry.name, entry.isDirectory);
        }
        return names;
    }

    Client& client;
    Itemizer& items;
};

/// "1 directory", "2 directories".
std::string Counted(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count).append(" ").append(count == 1 ? one : many);
}

std::string CountedObjects(std::uint64_t count) {
    return Counted(count, "object", "objects");
}

std::string SizeText(std::uint64_t kilobytes) {
    return kilobytes == 0 ? "0 KB" : HumanSize(kilobytes);
}

/// What would happen at the destination.
struct Verdict {
    std::string text;
    bool wouldFail = false;
};

Verdict OntoNothing(const Place& destination, bool needsDirectory) {
    const std::string path = Printable(destination.path);
    if (destination.kind == Place::Kind::NoParent) {
        return {"it would fail: the parent directory of " + path + " does not exist", true};
    }
    if (destination.kind == Place::Kind::Unknown) {
        return {path + " cannot be checked: the path goes through a link or a file"};
    }
    return needsDirectory ? Verdict{"it would fail: the directory " + path + " does not exist", true}
                          : Verdict{"nothing would be replaced: " + path + " does not exist"};
}

/// The children of the source go into an existing directory, or the contents of a copied directory do.
Verdict IntoDirectory(const Place& destination, const Survey& survey, const char* ofDirectories) {
    const std::string path = Printable(destination.path);
    if (destination.kind == Place::Kind::Other) {
        return {path + " is a link or a file; the command would fail if it is a file"};
    }
    return {CountedObjects(survey.replaced) + " in " + path + " would be replaced" + ofDirectories};
}

/// What a move does with a child that is a directory, if there is one with its name at the destination.
const char* MoveOfDirectories(std::optional<bool> isAcross) {
    return !isAcross   ? "; an existing directory is replaced if it is empty, and merged across file systems"
           : *isAcross ? "; existing directories would be merged"
                       : "; an existing directory is replaced if it is empty; otherwise it would fail";
}

Verdict MoveOntoDirectory(const Place& source, const Place& destination, Survey& survey, std::optional<bool> isAcross) {
    const std::string path = Printable(destination.path);
    if (source.kind != Place::Kind::Directory) {
        return !isAcross   ? Verdict{path + " is a directory and the source is not: it would fail, or across file " +
                                   "systems move the source into the directory"}
               : *isAcross ? Verdict{path + " is a directory: the source would be moved into it"}
                           : Verdict{"it would fail: " + path + " is a directory and the source is not", true};
    }
    const std::string merged = "the directories would be merged and " + CountedObjects(survey.replaced) + " replaced";
    if (isAcross.value_or(false)) {
        return {path + " exists: " + merged};
    }
    if (survey.IsEmpty(destination.path)) {
        return {"the empty directory " + path + " would be replaced"};
    }
    return isAcross ? Verdict{"it would fail: " + path + " is not empty", true}
                    : Verdict{path + " is not empty: it would fail, or across file systems " + merged};
}

Verdict OntoObject(const Place& source, const Place& destination) {
    const std::string path = Printable(destination.path);
    if (destination.kind == Place::Kind::Directory) {
        return {path + " is a directory: the source would be copied into it"};
    }
    return source.kind == Place::Kind::Directory ? Verdict{"it would fail: " + path + " is not a directory", true}
                                                 : Verdict{path + " would be replaced"};
}

Verdict Judge(const SubCommand& command, const Place& source, const Place& destination, Survey& survey,
              std::optional<bool> isAcross) {
    const bool isDirectory = source.kind == Place::Kind::Directory;
    const bool needsDirectory = command.Is(MeansChildren) || (command.Is(TakesForce) && isDirectory);
    const bool isOntoDirectory = destination.kind == Place::Kind::Directory;
    if (source.path == destination.path) {
        return command.Is(Moves) ? Verdict{"nothing would change: the source is the destination"}
                                 : Verdict{"it would fail: the source is the destination", true};
    }
    if (IsWithin(destination, source)) {
        return {"it would fail: " + Printable(destination.path) + " lies inside the source", true};
    }
    if (!destination.Exists()) {
        return OntoNothing(destination, needsDirectory);
    }
    if (needsDirectory || (!command.Is(Moves) && isDirectory && isOntoDirectory)) {
        return IntoDirectory(destination, survey, command.Is(Moves) ? MoveOfDirectories(isAcross) : "");
    }
    return command.Is(Moves) && isOntoDirectory ? MoveOntoDirectory(source, destination, survey, isAcross)
                                                : OntoObject(source, destination);
}

/// What would not arrive.
std::string LeftBehind(const SubCommand& command, const Arguments& arguments, const Preflight& preflight, bool isTree) {
    std::string text =
        command.Is(MeansChildren) && command.Is(Moves) ? Printable(arguments.path) + " itself stays\n" : "";
    if (preflight.losses) {
        const std::string lost = preflight.LossText();
        return text + (lost.empty() ? "no links or special files would be lost" : lost) + "\n";
    }
    return command.Is(Moves) || !isTree ? text : text + "links and special files would not be copied\n";
}

Answer Unanswered(ExitStatus status, std::string why) {
    Answer answer;
    answer.status = status;
    answer.isOk = false;
    answer.message = std::move(why);
    return answer;
}

std::optional<Answer> Refuse(const SubCommand& command, const Failure& connected, const Place& source) {
    if (connected) {
        return NoAnswer(connected);
    }
    if (source.kind == Place::Kind::Absent || source.kind == Place::Kind::NoParent) {
        return Unanswered(ExitStatus::SourceMissing, "the source does not exist");
    }
    if (source.kind == Place::Kind::Unknown) {
        return Unanswered(ExitStatus::Failed, "cannot be checked: the path goes through a link or a file");
    }
    if (command.Is(MeansChildren) && source.kind != Place::Kind::Directory) {
        return Unanswered(ExitStatus::Failed,
                          "cannot be checked: the source is a link or a file; the command would fail if it is a file");
    }
    return std::nullopt;
}

void CountSource(const SubCommand& command, const Place& source, const Place& destination, Survey& survey,
                 Itemizer& items) {
    const bool isMerged = source.kind == Place::Kind::Directory && destination.kind == Place::Kind::Directory;
    if (!command.Is(MeansChildren)) {
        items.Add(source.path, source.kind == Place::Kind::Directory,
                  isMerged               ? Obstacle::DirectoryToMerge
                  : destination.Exists() ? Obstacle::Object
                                         : Obstacle::Nothing);
    }
    if (source.kind != Place::Kind::Directory) {
        ++survey.others;
        return;
    }
    survey.directories += command.Is(MeansChildren) ? 0 : 1;
    survey.CountBelow(source.path, isMerged ? destination.path : std::string());
}

}  // namespace

Answer DryRun(const SubCommand& command, Client& client, const Arguments& arguments, const Preflight& preflight) {
    const Failure connected = client.Connect();
    const Place source = connected ? Place() : Look(client, arguments.path);
    if (std::optional<Answer> refusal = Refuse(command, connected, source)) {
        return *std::move(refusal);
    }
    const bool goesSomewhere = command.Is(TakesDestination);
    const Place destination = goesSomewhere ? Look(client, arguments.destination) : Place();
    Itemizer items(arguments.isItemized, command, preflight);
    Survey survey(client, items);
    CountSource(command, source, destination, survey, items);
    const Size size = survey.isWhole ? client.UsedSpace(source.path) : Size();
    Verdict verdict = goesSomewhere ? Judge(command, source, destination, survey, preflight.isAcross) : Verdict();
    if (!preflight.refusal.empty()) {
        verdict = {"it would fail: " + preflight.refusal, true};
    }

    Answer answer;
    answer.fields["dry_run"] = true;
    answer.fields["directories"] = survey.directories;
    answer.fields["others"] = survey.others;
    answer.fields["kilobytes"] = size.isWhole ? Json(size.kilobytes) : Json();
    if (goesSomewhere) {
        answer.fields["replaced"] = survey.replaced;
        answer.fields["would_fail"] = verdict.wouldFail;
    }
    if (arguments.isItemized) {
        answer.fields["objects"] = items.ToJson();
    }
    if (verdict.wouldFail) {
        const bool isLost = command.Is(TakesForce);
        return Failed(std::move(answer),
                      verdict.text + (isLost ? "; " + Printable(source.path) + " would be removed and its files lost"
                                             : std::string()));
    }
    answer.output = items.Text() + "would have " + command.done + " " + Objects(command, arguments) + ": " +
                    Counted(survey.directories, "directory", "directories") + ", " +
                    Counted(survey.others, "other object", "other objects") +
                    (size.isWhole ? ", " + SizeText(static_cast<std::uint64_t>(size.kilobytes)) : std::string()) + "\n";
    if (goesSomewhere) {
        answer.output +=
            verdict.text + "\n" + LeftBehind(command, arguments, preflight, source.kind == Place::Kind::Directory);
    }
    for (const std::string& warning : preflight.warnings) {
        answer.output += warning + "\n";
    }
    return size.isWhole ? answer
                        : Failed(std::move(answer), "not everything could be examined; the figures are incomplete");
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
