// The fixture of whole-process tests: the record files are empty at the start, the daemon ends with the test, and a
// failure shows the daemon's log and the records.
//
// Requests and shell scripts name the test's directories by two marks: "@" is the path of the tree on /data, "~" the
// path of the tree on the second file system.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "daemon_process.h"
#include "raw_client.h"
#include "records.h"
#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {

using Clients = std::vector<RawClient>;

inline void SendAll(Clients& clients, const Request& request) {
    std::for_each(clients.begin(), clients.end(), [&](RawClient& client) { client.Send(request); });
}

inline constexpr const char* CALLS = "/tmp/calls";  ///< strace's output

/// A command that runs the daemon without the capabilities that override permission bits, as under a strict label
/// policy.
inline constexpr const char* SETPRIV = "setpriv --bounding-set -dac_override,-dac_read_search";
inline const DaemonOptions WITHOUT_OVERRIDES{{}, {"setpriv", "--bounding-set", "-dac_override,-dac_read_search"}};

class DaemonTest : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0 || !std::filesystem::is_directory("/data") ||
            !std::filesystem::is_directory("/dev/unix/socket")) {
            GTEST_SKIP() << "needs privilege: root, /data and /dev/unix/socket";
        }
        NewTrees();
    }

    void TearDown() override {
        if (!HasFailure() || !tree) {
            return;
        }
        for (const char* file : RECORD_FILES) {
            for (const std::string& record : Records(file)) {
                GTEST_LOG_(INFO) << file << ": " << record;
            }
        }
        GTEST_LOG_(INFO) << "the daemon's log:\n" << (daemon ? daemon->Log() : "(not started)");
    }

    /// Replaces both trees by empty ones and removes all records.
    void NewTrees() {
        ClearRecords();
        tree.emplace();
        second.emplace(ScratchTree::On::SecondFs);
    }

    [[nodiscard]] std::string Expand(std::string text) const {
        for (std::size_t at = 0; (at = text.find_first_of("@~", at)) != std::string::npos;) {
            text.replace(at, 1, text[at] == '@' ? tree->Path() : second->Path());
        }
        return text;
    }

    [[nodiscard]] Request Expand(Request request) const {
        request.src = Expand(request.src);
        request.dst = Expand(request.dst);
        return request;
    }

    [[nodiscard]] std::optional<std::string> Shell(const std::string& script) const {
        return tree->Shell(Expand(script));
    }

    /// Starts the daemon. Kills the previous one first.
    DaemonProcess& Start(const DaemonOptions& options = {}) {
        daemon.reset();
        daemon = std::make_unique<DaemonProcess>(options);
        return *daemon;
    }

    /// Starts the daemon under strace, which changes system calls of all threads: "-einject=fsync:error=EIO", ...
    DaemonProcess& StartWithFault(Strings arguments) {
        arguments.insert(arguments.begin(), {"strace", "-fqqo", CALLS});
        return Start({{}, arguments});
    }

    /// Starts the daemon so that all its threads stop when one of them has made such a system call.
    void StartStoppingAfter(const std::string& call) {
        StartWithFault({"-etrace=" + call, "-einject=" + call + ":signal=STOP:when=1"});
    }

    /// Sends a request and acts while the daemon of StartStoppingAfter() is stopped.
    Reply CallInterrupted(const Request& request, const auto& act) {
        RawClient client;
        client.Send(Expand(request));
        EXPECT_TRUE(Becomes([] { return ReadFile(CALLS).find("stopped by SIGSTOP") != std::string::npos; }));
        act();
        std::optional<Reply> reply;
        // Each thread stops once, so the daemon may stop again.
        EXPECT_TRUE(
            Becomes([&] { return kill(daemon->Pid(), SIGCONT) == 0 && (reply = client.Receive(Deadline{5})); }));
        return reply.value_or(Reply{});
    }

    /// Starts the daemon in a mount namespace of its own, with a policy that has these labelling rules.
    /// @param runner  a command that runs the daemon, such as "setpriv"
    /// @return false, without a daemon, if such a namespace is not allowed here
    bool StartWithLabels(const std::string& rules, const std::string& runner = "") {
        const char* const sandbox = std::getenv("FILE_MIGRATE_SANDBOX");  // NOLINT(concurrency-mt-unsafe)
        if (sandbox == nullptr || sandbox != std::string("private")) {
            return false;
        }
        etc.emplace();
        etc->File("selinux/config", "SELINUXTYPE=mini\n");
        etc->File("selinux/mini/contexts/files/file_contexts", rules);
        const std::string script = "mount --bind " + etc->Path() + " /etc && exec " + runner + " \"$@\"";
        Start({{}, {"unshare", "-m", "sh", "-c", script, "sh"}});
        return true;
    }

    /// Sends one request on a connection of its own. Starts the daemon if the test has not.
    Reply Call(const Request& request) {
        if (!daemon) {
            Start();
        }
        return RawClient().Call(Expand(request));
    }

    /// All matches of the pattern in the daemon's log, whose lines are first changed to "LEVEL [FUNCTION] TEXT".
    [[nodiscard]] Strings Found(const std::string& pattern) const {
        static const std::regex head(R"(.{19}(.) FileMigrateOrvane: \[(.*?):\d+\])");
        const std::string log = std::regex_replace(daemon->Log(), head, "$1 [$2]");
        const std::regex wanted(pattern);
        return {std::sregex_token_iterator(log.begin(), log.end(), wanted), std::sregex_token_iterator()};
    }

    bool Await(const std::string& pattern, std::size_t n = 1) {
        return Becomes([&] { return Found(pattern).size() >= n; });
    }

    std::optional<ScratchTree> tree, second;
    std::optional<ScratchTree> etc;  ///< the daemon's /etc after StartWithLabels()
    std::unique_ptr<DaemonProcess> daemon;
};

}  // namespace TAVO::FileMigrateOrvane::Testing
