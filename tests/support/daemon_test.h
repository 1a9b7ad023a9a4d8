// The fixture of whole-process tests: the record files are empty at the start, the daemon ends with the test, and a
// failure shows the daemon's log and the records.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "daemon_process.h"
#include "raw_client.h"
#include "records.h"
#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {

class DaemonTest : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0 || !std::filesystem::is_directory("/data") ||
            !std::filesystem::is_directory("/dev/unix/socket")) {
            GTEST_SKIP() << "needs privilege: root, /data and /dev/unix/socket";
        }
        ClearRecords();
        tree.emplace();
    }

    void TearDown() override {
        if (!HasFailure() || !tree) {
            return;
        }
        for (const char* file : {BI_FILE_OLD, BI_FILE, AB_FILE}) {
            for (const std::string& record : Records(file)) {
                GTEST_LOG_(INFO) << file << ": " << record;
            }
        }
        GTEST_LOG_(INFO) << "the daemon's log:\n" << (daemon ? daemon->Log() : "(not started)");
    }

    /// Starts the daemon, in place of one that runs already.
    DaemonProcess& Start(const DaemonOptions& options = {}) {
        daemon.reset();
        daemon = std::make_unique<DaemonProcess>(options);
        return *daemon;
    }

    /// One request on a connection of its own, to the daemon of Start() or a new one.
    Reply Call(const Request& request) {
        if (!daemon) {
            Start();
        }
        return RawClient().Call(request);
    }

    std::optional<ScratchTree> tree;  ///< on /data
    std::unique_ptr<DaemonProcess> daemon;
};

}  // namespace TAVO::FileMigrateOrvane::Testing
