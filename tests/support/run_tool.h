// Runs orvanectl from a shell, as a user does. Used by one thread.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {

struct Finished {
    int status;
    std::string out, err;
};

/// @param prefix  shell text before the command: "LC_ALL=C", "cd /data;", "timeout 1"
inline Finished RunTool(const std::string& words, const std::string& prefix = "") {
    const ScratchTree files;
    const std::string out = files.Path("out"), err = files.Path("err");
    const std::string call =
        prefix + " $FILE_MIGRATE_TEST_WRAPPER " ORVANECTL_PATH " " + words + " >" + out + " 2>" + err;
    const int status = std::system(call.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe): a shell is wanted.
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
}

}  // namespace TAVO::FileMigrateOrvane::Testing
