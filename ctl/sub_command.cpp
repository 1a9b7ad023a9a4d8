#include "sub_command.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace TAVO::FileMigrateOrvane {
namespace {

/// Questions about one object are answered at once, unless all workers of the daemon are busy.
constexpr int QUICK = 60;
/// Work on a tree takes as long as the tree is large; giving up would not stop it.
constexpr int AS_LONG_AS_IT_TAKES = 0;

void Complain(const std::string& what, const std::string& why) {
    (void)std::fprintf(stderr, "orvanectl: %s: %s\n", what.c_str(), why.c_str());
}

std::string ErrorText(int errCode) {
    if (errCode == 0) {
        return "failed, and the daemon gave no error number";
    }
    const char* name = strerrorname_np(errCode);
    if (name == nullptr) {
        return "error number " + std::to_string(errCode);
    }
    return std::string(name) + " (" + strerrordesc_np(errCode) + ")";
}

ExitStatus NoReply(const Failure& failure, const std::string& what) {
    Complain(what, failure.Message());
    return failure.code == ClientErrc::InvalidRequest ? ExitStatus::Usage : ExitStatus::NoAnswer;
}

ExitStatus Failed(const Reply& reply, const std::string& what) {
    if (reply.failure) {
        return NoReply(reply.failure, what);
    }
    Complain(what, ErrorText(reply.errCode));
    return ExitStatus::Failed;
}

ExitStatus Tell(const Outcome& outcome, const std::string& what) {
    if (outcome.SourceMissing()) {
        Complain(what, "the source does not exist");
        return ExitStatus::SourceMissing;
    }
    return outcome.Succeeded() ? ExitStatus::Success : Failed(outcome, what);
}

ExitStatus Tell(const YesNo& answer, const std::string& what) {
    if (answer.IsYes()) {
        return ExitStatus::Success;
    }
    return answer.IsNo() ? ExitStatus::Failed : Failed(answer, what);
}

ExitStatus Tell(const Listing& listing, const std::string& what) {
    if (!listing.Succeeded()) {
        return Failed(listing, what);
    }
    for (const Entry& entry : listing.entries) {
        std::printf("%s%s\n", entry.name.c_str(), entry.isDirectory ? "/" : "");
    }
    return ExitStatus::Success;
}

ExitStatus Tell(const ExistedPathReply& reply, const std::string& what) {
    if (!reply.Succeeded()) {
        return Failed(reply, what);
    }
    std::printf("%s\n", reply.path.c_str());
    return ExitStatus::Success;
}

ExitStatus Tell(const Size& size, const std::string& what) {
    if (size.failure || size.result < 0) {
        return Failed(size, what);
    }
    std::printf("%d\n", size.kilobytes);
    if (!size.isWhole) {
        Complain(what, "the figure is not whole: " + ErrorText(size.errCode));
        return ExitStatus::Failed;
    }
    return ExitStatus::Success;
}

/// Fits a call of the client with any kind of reply into the table's one shape.
template <auto Call>
ExitStatus Do(Client& client, const Arguments& arguments, const std::string& what) {
    return Tell(Call(client, arguments), what);
}

constexpr SubCommand SUB_COMMANDS[] = {
    {"exists", "Tell by the exit status whether PATH exists; a dangling link does not.", "exists /data/app && echo yes",
     TAKES_PATH, QUICK, Do<[](Client& c, const Arguments& a) { return c.IsExist(a.path); }>},
    {"is-dir", "Tell by the exit status whether PATH is a directory; a link to one is not.", "is-dir /data/app",
     TAKES_PATH, QUICK, Do<[](Client& c, const Arguments& a) { return c.IsDir(a.path); }>},
    {"ls", "List the directory PATH, one name a line; a directory's name ends in \"/\".", "ls /data/app", TAKES_PATH,
     QUICK, Do<[](Client& c, const Arguments& a) { return c.ListDir(a.path); }>},
    {"prepare-dir", "Create the directory PATH with an owner and a mode; one that exists is left as it is.",
     "prepare-dir -r system:system 0771 /data/app/el1", TAKES_OWNER | TAKES_MODE | TAKES_PATH | TAKES_RECURSIVE, QUICK,
     Do<[](Client& c, const Arguments& a) { return c.PrepareDir(a.path, a.user, a.group, a.mode, a.recursion); }>},
    {"mkdir", "Create the directory PATH with mode 0700; one that exists is left as it is.", "mkdir -r /data/app/el1",
     TAKES_PATH | TAKES_RECURSIVE, QUICK,
     Do<[](Client& c, const Arguments& a) { return c.MkDir(a.path, a.recursion); }>},
    {"move", "Move SOURCE to the name DESTINATION; across file systems links are not carried over.",
     "move /data/app.old /data/app", TAKES_SOURCE | TAKES_DESTINATION, AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return c.MoveAll(a.path, a.destination); }>},
    {"move-children", "Move every child of SOURCE into the directory DESTINATION.",
     "move-children /data/app.old /data/app", TAKES_SOURCE | TAKES_DESTINATION, AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return c.MoveSub(a.path, a.destination); }>},
    {"copy", "Copy SOURCE to the name DESTINATION, without the links in it.", "copy /data/app /data/app.bak",
     TAKES_SOURCE | TAKES_DESTINATION, AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return c.CopyAll(a.path, a.destination); }>},
    {"copy-children", "Copy every child of SOURCE into the directory DESTINATION.",
     "copy-children /data/app /data/app.bak", TAKES_SOURCE | TAKES_DESTINATION, AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return c.CopySub(a.path, a.destination); }>},
    {"copy-comb",
     "Copy SOURCE to DESTINATION with one owner and mode for everything, and remove SOURCE, also where a copy failed. "
     "For a directory, DESTINATION must exist.",
     "copy-comb system:system 0640 /data/app.old /data/app",
     TAKES_OWNER | TAKES_MODE | TAKES_SOURCE | TAKES_DESTINATION, AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return c.CopyComb(a.path, a.destination, a.user, a.group, a.mode); }>},
    {"rm", "Remove PATH and everything below it.", "rm --keep-going /data/app.old", TAKES_PATH | TAKES_KEEP_GOING,
     AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return a.keepGoing ? c.TryRemove(a.path) : c.Remove(a.path); }>},
    {"restorecon", "Give PATH the security label that the policy has for it.", "restorecon -r /data/app",
     TAKES_PATH | TAKES_RECURSIVE | TAKES_FROM_PARENT, AS_LONG_AS_IT_TAKES, Do<[](Client& c, const Arguments& a) {
         return a.fromParent ? c.RestoreconFromParent(a.path) : c.Restorecon(a.path, a.recursion);
     }>},
    {"chown", "Change owner and group of PATH; a link itself is changed, not what it points to.",
     "chown -r system:1000 /data/app", TAKES_OWNER | TAKES_PATH | TAKES_RECURSIVE, AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return c.ChOwn(a.path, a.user, a.group, a.recursion); }>},
    {"chmod", "Change the mode of PATH; a link has none and fails.", "chmod 0750 /data/app",
     TAKES_MODE | TAKES_PATH | TAKES_RECURSIVE, AS_LONG_AS_IT_TAKES,
     Do<[](Client& c, const Arguments& a) { return c.ChMod(a.path, a.mode, a.recursion); }>},
    {"existing-path", "Print the nearest ancestor of PATH that exists, or PATH itself.",
     "existing-path /data/app/el1/base", TAKES_PATH, QUICK,
     Do<[](Client& c, const Arguments& a) { return c.ExistedPath(a.path); }>},
    {"du", "Print the space in KB that PATH and everything below it use.", "du /data/app", TAKES_PATH,
     AS_LONG_AS_IT_TAKES, Do<[](Client& c, const Arguments& a) { return c.UsedSpace(a.path); }>},
    {"largest", "Print the space in KB of the largest file below PATH.", "largest /data/app", TAKES_PATH,
     AS_LONG_AS_IT_TAKES, Do<[](Client& c, const Arguments& a) { return c.MaxSize(a.path); }>},
};

}  // namespace

std::span<const SubCommand> SubCommands() {
    return SUB_COMMANDS;
}

ExitStatus Run(const SubCommand& command, Client& client, const Arguments& arguments) {
    std::string what = std::string(command.name) + " " + arguments.path;
    if ((command.takes & TAKES_DESTINATION) != 0) {
        what += " -> " + arguments.destination;
    }
    const ExitStatus status = command.run(client, arguments, what);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        Complain(what, "the answer could not be written to standard output");
        return ExitStatus::Failed;
    }
    return status;
}

}  // namespace TAVO::FileMigrateOrvane
