// Moves an application's data to a new place, gives it to its owner and labels it. It refuses to move what would be
// lost.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <file_migrate_orvane/file_migrate_client.hpp>
#include <filesystem>
#include <string>

using namespace TAVO::FileMigrateClient;

namespace {

[[noreturn]] void Fail(const std::string& step, const Reply& reply) {
    std::string why = "the daemon gave no error number";
    if (reply.failure) {
        why = reply.failure.Message();  // no answer: no daemon, no permission, out of time, a bad path
    } else if (reply.errCode != 0) {
        why = std::strerror(reply.errCode);
    }
    std::fprintf(stderr, "%s: %s\n", step.c_str(), why.c_str());
    if (reply.failure.code == ClientErrc::TimedOut) {
        std::fprintf(stderr, "the request may still be in progress: check before repeating it\n");
    }
    std::exit(EXIT_FAILURE);
}

void Require(const std::string& step, const Outcome& outcome) {
    if (!outcome.Succeeded()) {
        Fail(step, outcome);
    }
}

// A move to another file system copies regular files and directories only. Links, pipes, sockets and devices are
// removed with the source, and the result is still 0.
void RequireThatNothingIsLost(const std::string& from, const std::string& to) {
    namespace fs = std::filesystem;
    struct stat source = {};
    struct stat destination = {};
    if (stat(from.c_str(), &source) == 0 && stat(to.c_str(), &destination) == 0 &&
        source.st_dev == destination.st_dev) {
        return;
    }
    std::error_code error;
    for (fs::recursive_directory_iterator entry(from, error), end; !error && entry != end; entry.increment(error)) {
        const fs::file_status status = entry->symlink_status(error);
        if (!fs::is_regular_file(status) && !fs::is_directory(status)) {
            std::fprintf(stderr, "%s: neither a file nor a directory; it would be lost\n", entry->path().c_str());
            std::exit(EXIT_FAILURE);
        }
    }
    if (error) {
        std::fprintf(stderr, "%s: cannot look for what would be lost: %s\n", from.c_str(), error.message().c_str());
        std::exit(EXIT_FAILURE);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: move_app_data OLD NEW USER GROUP\n");
        return EXIT_FAILURE;
    }
    const std::string from = argv[1], to = argv[2], user = argv[3], group = argv[4];

    ClientOptions options;
    options.replyLimit = std::chrono::hours(2);  // for each request; across file systems a move copies
    Client client(options);

    const YesNo isThere = client.IsExist(from);
    if (isThere.IsNo()) {
        std::printf("%s: nothing to move\n", from.c_str());
        return EXIT_SUCCESS;
    }
    if (!isThere.IsYes()) {
        Fail("looking for " + from, isThere);
    }

    Require("creating " + to, client.PrepareDir(to, user, group, "0750", Recursion::Recursive));
    RequireThatNothingIsLost(from, to);
    Require("moving to " + to, client.MoveSub(from, to));
    Require("changing owners in " + to, client.ChOwn(to, user, group, Recursion::Recursive));

    const Outcome labelled = client.Restorecon(to, Recursion::Recursive);
    if (!labelled.Succeeded() && labelled.errCode != EOPNOTSUPP) {  // a machine without a label policy
        Fail("labelling " + to, labelled);
    }

    const Size used = client.UsedSpace(to);
    if (!used.isWhole) {
        Fail("measuring " + to, used);
    }
    std::printf("%s: %d KB moved\n", to.c_str(), used.kilobytes);
    return EXIT_SUCCESS;
}
