// Runs strace on the daemon. It lists the system calls of each thread, or changes them with `inject=`.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "daemon_test.h"

namespace TAVO::FileMigrateOrvane::Testing {

/// Attaches strace to a running daemon. When this returns, strace counts the calls of every thread. It also counts
/// those of the threads that are started later.
/// @return strace's process id, for StopTrace
inline pid_t Trace(pid_t daemon, const std::string& expression) {
    std::vector<std::string> words = {"strace", "-fqqo", CALLS, "-e", expression, "-p", std::to_string(daemon)};
    std::vector<std::filesystem::path> traced;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon) + "/task")) {
        traced.push_back(task.path());
    }
    const auto every = [&traced](const char* line) {
        return Becomes([&] {
            return std::all_of(traced.begin(), traced.end(), [line](const std::filesystem::path& task) {
                std::ifstream stream(task / "status");
                const std::string status{std::istreambuf_iterator<char>(stream), {}};
                return status.empty() || status.find(line) != std::string::npos;  // empty: the thread has ended
            });
        });
    };
    EXPECT_TRUE(every("State:\tS"));  // strace miscounts a thread that it attaches to between two calls
    const pid_t strace = fork();
    if (strace == 0) {
        std::vector<char*> arguments;
        std::transform(words.begin(), words.end(), std::back_inserter(arguments),
                       [](std::string& word) { return word.data(); });
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    EXPECT_TRUE(every(("TracerPid:\t" + std::to_string(strace)).c_str()));
    return strace;
}

inline void StopTrace(pid_t strace) {
    kill(strace, SIGINT);
    waitpid(strace, nullptr, 0);
}

}  // namespace TAVO::FileMigrateOrvane::Testing
