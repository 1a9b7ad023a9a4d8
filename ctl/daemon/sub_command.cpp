#include "sub_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "advice.h"
#include "dry_run.h"
#include "failure_cause.h"
#include "preflight.h"
#include "progress.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

/// Seconds for a question about one object, which is answered at once unless all workers of the daemon are busy.
constexpr int QUICK = 60;
/// Work on a tree may take any time, and the daemon would not stop if orvanectl gave up.
constexpr int UNLIMITED = 0;

/// Converts a client call, which has its own reply type, to the type of the table's functions.
template <auto Call>
Answer Do(Client& client, const Arguments& arguments) {
    return AnswerTo(Call(client, arguments), arguments.style);
}

constexpr const char* MAKES_ANCESTORS = "create missing ancestors too";
constexpr const char* CHANGES_ALL = "change everything below PATH too";
constexpr const char* LABELS_ALL = "label everything below PATH too";

constexpr SubCommand SUB_COMMANDS[] = {
    {"exists", nullptr, "Exit with 0 if PATH exists; links are followed.", nullptr, "exists /data/app && echo yes",
     TakesPath, QUICK, Do<[](Client& c, const Arguments& a) { return c.IsExist(a.path); }>},
    {"is-dir", nullptr, "Exit with 0 if PATH is a directory and not a link.", nullptr, "is-dir /data/app", TakesPath,
     QUICK, Do<[](Client& c, const Arguments& a) { return c.IsDir(a.path); }>},
    {"ls", nullptr, "List the directory PATH; directories end in \"/\".", nullptr, "ls /data/app", TakesPath, QUICK,
     Do<[](Client& c, const Arguments& a) { return c.ListDir(a.path); }>},
    {"prepare-dir", nullptr, "Create a directory with an owner and a mode.", MAKES_ANCESTORS,
     "prepare-dir -r system:system 0771 /data/app/el1",
     TakesOwner | TakesMode | TakesPath | MakesDirectory | TakesRecursive, QUICK,
     Do<[](Client& c, const Arguments& a) { return c.PrepareDir(a.path, a.user, a.group, a.mode, a.recursion); }>},
    {"mkdir", nullptr, "Create the directory PATH with mode 0700.", MAKES_ANCESTORS, "mkdir -r /data/app/el1",
     TakesPath | MakesDirectory | TakesRecursive, QUICK,
     Do<[](Client& c, const Arguments& a) { return c.MkDir(a.path, a.recursion); }>},
    {"move", "moved", "Move SOURCE to the name DESTINATION.", nullptr, "move /data/app.old /data/app",
     TakesSource | TakesDestination | TakesDryRun | TakesProgress | Moves | RemovesSource | OutlivesUs, UNLIMITED,
     Do<[](Client& c, const Arguments& a) { return c.MoveAll(a.path, a.destination); }>},
    {"move-children", "moved the children of", "Move every child of SOURCE into DESTINATION.", nullptr,
     "move-children /data/app.old /data/app",
     TakesSource | TakesDestination | TakesDryRun | TakesProgress | MeansChildren | Moves | RemovesSource | OutlivesUs,
     UNLIMITED, Do<[](Client& c, const Arguments& a) { return c.MoveSub(a.path, a.destination); }>},
    {"copy", "copied", "Copy SOURCE to DESTINATION, without links.", nullptr, "copy /data/app /data/app.bak",
     TakesSource | TakesDestination | TakesDryRun | TakesProgress | OutlivesUs, UNLIMITED,
     Do<[](Client& c, const Arguments& a) { return c.CopyAll(a.path, a.destination); }>},
    {"copy-children", "copied the children of", "Copy every child of SOURCE into DESTINATION.", nullptr,
     "copy-children /data/app /data/app.bak",
     TakesSource | TakesDestination | TakesDryRun | TakesProgress | MeansChildren | OutlivesUs, UNLIMITED,
     Do<[](Client& c, const Arguments& a) { return c.CopySub(a.path, a.destination); }>},
    {"copy-comb", "moved", "Copy with one owner and mode, then remove SOURCE.", nullptr,
     "copy-comb system:system 0640 /data/app.old /data/app",
     TakesOwner | TakesMode | TakesSource | TakesDestination | TakesDryRun | TakesProgress | TakesForce |
         RemovesSource | OutlivesUs,
     UNLIMITED,
     Do<[](Client& c, const Arguments& a) { return c.CopyComb(a.path, a.destination, a.user, a.group, a.mode); }>},
    {"rm", "removed", "Remove PATH and everything below it.", nullptr, "rm --keep-going /data/app.old",
     TakesPath | TakesKeepGoing | TakesDryRun | RemovesSource | OutlivesUs, UNLIMITED,
     Do<[](Client& c, const Arguments& a) { return a.keepGoing ? c.TryRemove(a.path) : c.Remove(a.path); }>},
    {"restorecon", nullptr, "Give PATH the security label that the policy prescribes.", LABELS_ALL,
     "restorecon -r /data/app", TakesPath | TakesRecursive | TakesFromParent | OutlivesUs, UNLIMITED,
     Do<[](Client& c, const Arguments& a) {
         return a.fromParent ? c.RestoreconFromParent(a.path) : c.Restorecon(a.path, a.recursion);
     }>},
    {"chown", nullptr, "Change owner and group; links are not followed.", CHANGES_ALL, "chown -r system:1000 /data/app",
     TakesOwner | TakesPath | TakesRecursive | OutlivesUs, UNLIMITED,
     Do<[](Client& c, const Arguments& a) { return c.ChOwn(a.path, a.user, a.group, a.recursion); }>},
    {"chmod", nullptr, "Change the mode of PATH; it fails for a link.", CHANGES_ALL, "chmod 0750 /data/app",
     TakesMode | TakesPath | TakesRecursive | OutlivesUs, UNLIMITED,
     Do<[](Client& c, const Arguments& a) { return c.ChMod(a.path, a.mode, a.recursion); }>},
    {"existing-path", nullptr, "Print PATH or its nearest existing ancestor.", nullptr,
     "existing-path /data/app/el1/base", TakesPath, QUICK,
     Do<[](Client& c, const Arguments& a) { return c.ExistedPath(a.path); }>},
    {"du", nullptr, "Print the KB used by PATH and everything below it.", nullptr, "du /data/app",
     TakesPath | TakesHuman, UNLIMITED, Do<[](Client& c, const Arguments& a) { return c.UsedSpace(a.path); }>},
    {"largest", nullptr, "Print the KB of the largest file below PATH.", nullptr, "largest /data/app",
     TakesPath | TakesHuman, UNLIMITED, Do<[](Client& c, const Arguments& a) { return c.MaxSize(a.path); }>},
};

/// The first keys of the JSON object: what was given on the command line.
Json ObjectOf(const SubCommand& command, const Arguments& arguments) {
    Json object;
    object["command"] = command.name;
    PutText(object, "path", arguments.path);
    if (command.Is(TakesDestination)) {
        PutText(object, "destination", arguments.destination);
    }
    if (command.Is(TakesOwner)) {
        PutText(object, "user", arguments.user);
        PutText(object, "group", arguments.group);
    }
    if (command.Is(TakesMode)) {
        object["mode"] = arguments.mode;
    }
    if (command.Is(TakesRecursive)) {
        object["recursive"] = arguments.recursion == Recursion::Recursive;
    }
    return object;
}

/// Sends the request. If the daemon would not stop at Ctrl-C, a message says so.
Answer Ask(const SubCommand& command, Client& client, const Arguments& arguments) {
    std::optional<InterruptNotice> notice;
    if (command.Is(OutlivesUs)) {
        notice.emplace(std::string(isatty(STDERR_FILENO) == 1 ? "\n" : "") +
                       "orvanectl: interrupted; the daemon finishes what it has begun: " + command.name + " " +
                       Objects(command, arguments) + "\n");
    }
    return command.ask(client, arguments);
}

Answer AskWithProgress(const SubCommand& command, Client& client, const ClientOptions& options,
                       const Arguments& arguments) {
    Progress progress(options, command.name,
                      {arguments.path, arguments.destination, command.Is(Moves), command.Is(MeansChildren)});
    Answer answer = Ask(command, client, arguments);
    const std::string summary = progress.Summary();
    progress.End();
    if (answer.isOk) {
        (void)std::fprintf(stderr, "%s %s%s\n", command.done, Objects(command, arguments).c_str(), summary.c_str());
    }
    return answer;
}

std::string Subject(const SubCommand& command, const Arguments& arguments) {
    return std::string(command.name) + " " + Objects(command, arguments);
}

/// Why the request is not sent; empty if it is.
std::string RefusalOf(const Preflight& preflight, const Arguments& arguments) {
    if (!preflight.refusal.empty() && !arguments.isForced) {
        return "not sent: " + preflight.refusal + ". The daemon would still remove the source; --force sends it anyway";
    }
    return arguments.isStrict && !preflight.LossText().empty() ? "not sent: " + preflight.LossText() : "";
}

void ReportWarnings(const SubCommand& command, const Arguments& arguments, const Preflight& preflight) {
    for (const std::string& warning : preflight.warnings) {
        Complain(Subject(command, arguments), warning);
    }
    if (const std::string text = preflight.LossText(); !text.empty()) {
        Complain(Subject(command, arguments), "warning: " + text);
    }
}

/// Corrects answers of the daemon that mislead: success for a directory that exists as a file, and a missing source
/// that is a broken link.
void Refine(const SubCommand& command, const Arguments& arguments, Answer& answer) {
    struct stat st {};
    if (command.Is(MakesDirectory) && answer.isOk && stat(arguments.path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) {
        answer = Failed(std::move(answer), "the path exists and is not a directory");
    }
    if (answer.status == ExitStatus::SourceMissing && lstat(arguments.path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        answer.message = "the source is a link that leads nowhere";
    }
}

Answer Send(const SubCommand& command, Client& client, const ClientOptions& options, const Arguments& arguments) {
    const RecordMark before;
    Answer answer = arguments.showsProgress ? AskWithProgress(command, client, options, arguments)
                                            : Ask(command, client, arguments);
    Refine(command, arguments, answer);
    if (!answer.noAnswer && !answer.message.empty()) {
        AddCause(answer, arguments, before);
    }
    return answer;
}

}  // namespace

std::span<const SubCommand> SubCommands() {
    return SUB_COMMANDS;
}

std::string Objects(const SubCommand& command, const Arguments& arguments) {
    return Printable(arguments.path) +
           (command.Is(TakesDestination) ? " -> " + Printable(arguments.destination) : std::string());
}

ExitStatus Run(const SubCommand& command, const DaemonOptions& daemon, const Arguments& arguments) {
    const ClientOptions options = daemon.WaitingFor(command.replySeconds);
    const Preflight preflight = Inspect(command, arguments);
    Client client(options);
    Answer answer;
    if (arguments.isDryRun) {
        answer = DryRun(command, client, arguments, preflight);
    } else if (const std::string refusal = RefusalOf(preflight, arguments); !refusal.empty()) {
        answer = Failed({}, refusal);
    } else {
        ReportWarnings(command, arguments, preflight);
        answer = Send(command, client, options, arguments);
    }
    preflight.PutInto(answer.fields);
    if (answer.noAnswer) {
        answer.hint = Advice(answer.noAnswer, options.socketPath);
    }
    return Print(answer, Subject(command, arguments), ObjectOf(command, arguments), arguments.style.isJson);
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
