#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "advice.h"
#include "answer.h"
#include "daemon_commands.h"
#include "kernel_log_dumps.h"
#include "record_files.h"
#include "record_json.h"
#include "record_table.h"
#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr int ANSWER_SECONDS = 5;

/// The median time of a few exchanges, in milliseconds. The question cannot fail, so it leaves no record.
Failure TimeExchange(Client& client, double& milliseconds) {
    using Clock = std::chrono::steady_clock;
    std::array<double, 5> times{};
    for (double& time : times) {
        const Clock::time_point start = Clock::now();
        if (YesNo answer = client.IsDir("/"); answer.failure) {
            return std::move(answer.failure);
        }
        time = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }
    std::ranges::sort(times);
    milliseconds = times[times.size() / 2];
    return {};
}

/// One line of the output.
std::string Line(const char* what, const std::string& text) {
    std::string line(what);
    line.resize(std::max<std::size_t>(line.size(), 14), ' ');
    return line + text + "\n";
}

void AddDaemon(const DaemonOptions& daemon, Answer& answer) {
    const ClientOptions options = daemon.WaitingFor(ANSWER_SECONDS);
    Client client(options);
    double milliseconds = 0;
    const Failure failure = TimeExchange(client, milliseconds);
    const std::string owner = OwnerAndMode(options.socketPath);
    if (failure) {
        answer = NoAnswer(failure);
        answer.hint = Advice(failure.code, options.socketPath);
        answer.output = Line("daemon", "does not answer");
    } else {
        std::array<char, 64> text{};
        (void)std::snprintf(text.data(), text.size(), "answers within %.2f ms", milliseconds);
        answer.output = Line("daemon", text.data());
    }
    answer.fields["version"] = ORVANECTL_VERSION;
    answer.fields["reachable"] = !failure;
    answer.fields["milliseconds"] = failure ? Json() : Json(milliseconds);
    answer.output += Line("socket", Printable(options.socketPath) + (owner.empty() ? "" : " (" + owner + ")"));
    answer.fields["socket"] = options.socketPath;
    answer.fields["socket_owner"] = owner;
}

struct FileSizes {
    std::uint64_t bytes = 0;
    int errorNumber = 0;  ///< error of the file itself
    std::size_t rotated = 0;
};

FileSizes SizesOf(const std::string& path) {
    FileSizes sizes;
    const auto add = [&](const std::string& file) {
        struct stat st {};
        if (stat(file.c_str(), &st) != 0) {
            return errno;
        }
        sizes.bytes += static_cast<std::uint64_t>(st.st_size);
        return 0;
    };
    sizes.errorNumber = add(path);
    int unused = 0;
    for (const std::string& file : Reader::RotatedFiles(path, unused)) {
        (void)add(file);  // a file that was removed meanwhile counts 0
        ++sizes.rotated;
    }
    return sizes;
}

/// Why a record file is missing.
std::string Lacking(const std::string& path, int errorNumber) {
    const std::string directory = std::filesystem::path(path).parent_path();
    if (errorNumber != ENOENT) {
        return ErrorText(errorNumber) + ": " + AccessHint(path);
    }
    return access(directory.c_str(), F_OK) == 0
               ? "no records"
               : "no directory: records are lost until you run \"mkdir -p " + directory + "\"";
}

void AddRecordFile(const std::string& path, Answer& answer) {
    const FileSizes sizes = SizesOf(path);
    Json object;
    object["file"] = path;
    object["bytes"] = sizes.bytes;
    object["rotated"] = sizes.rotated;
    object["errno"] = sizes.errorNumber;
    answer.fields["records"].push_back(std::move(object));

    std::string text = path + ": ";
    text += sizes.errorNumber == 0 || sizes.rotated > 0 ? HumanSize((sizes.bytes + 1023) / 1024)
                                                        : Lacking(path, sizes.errorNumber);
    if (sizes.rotated > 0) {
        text += " with " + std::to_string(sizes.rotated) + " rotated";
    }
    answer.output += Line("records", text);
}

/// The last record of the files, with or without their rotated files.
/// @param trouble  set if a file cannot be read: why, and who may read it
std::optional<Reader::Record> LastRecord(bool includesRotated, std::string& trouble) {
    std::vector<Reader::RecordPath> paths;
    paths.reserve(RECORD_FILES.size());
    for (const char* file : RECORD_FILES) {
        paths.push_back({file, /*mayBeMissing=*/true, includesRotated});
    }
    Reader::RecordStream stream(paths, Reader::Reading::Once);
    std::optional<Reader::Record> last;
    while (std::optional<Reader::LocatedRecord> next = stream.Next()) {
        last = std::move(next->record);
    }
    for (const Reader::ReadTrouble& each : stream.TakeTroubles()) {
        if (each.errorNumber != 0) {
            trouble = ErrorText(each.errorNumber).append(": ").append(AccessHint(each.file));
        }
    }
    return last;
}

void AddLastRecord(Answer& answer) {
    std::string trouble;
    std::optional<Reader::Record> last = LastRecord(/*includesRotated=*/false, trouble);
    if (!last) {
        last = LastRecord(/*includesRotated=*/true, trouble);
    }
    answer.fields["last_record"] = last ? JsonLine(*last) : Json();
    const std::string text = last              ? RecordInWords(*last, {MayColour(STDOUT_FILENO), /*isVerbose=*/false})
                             : trouble.empty() ? "none"
                                               : "unknown: " + trouble;
    answer.output += Line("last record", text.substr(0, text.find('\n')));
}

void AddDumps(Answer& answer) {
    int err = 0;
    const std::size_t count = Reader::KernelLogDumps(DUMP_DIRECTORY, err).size();
    answer.fields["dumps"] = err == 0 ? Json(count) : Json();
    answer.output +=
        Line("dumps", err == 0 ? std::to_string(count) : ErrorText(err) + ": " + AccessHint(DUMP_DIRECTORY));
}

ExitStatus PrintStatus(const DaemonOptions& daemon, bool isJson) {
    Answer answer;
    AddDaemon(daemon, answer);
    answer.output = Line("orvanectl", ORVANECTL_VERSION) + answer.output;
    answer.fields["records"] = Json::array();
    for (const char* file : RECORD_FILES) {
        AddRecordFile(file, answer);
    }
    AddLastRecord(answer);
    AddDumps(answer);
    Json object;
    object["command"] = "status";
    return Print(answer, "status", std::move(object), isJson);
}

}  // namespace

void AddStatusCommand(CLI::App& app, const DaemonOptions& daemon, Action& chosen) {
    CLI::App* parser = app.add_subcommand("status", "Show the state of the daemon and its records.");
    const auto isJson = std::make_shared<bool>(false);
    parser->add_flag("--json", *isJson, "print one JSON object instead of text");
    parser->footer("Waits 5 seconds for each answer unless --timeout is given.\n\nExample:\n  orvanectl status");
    parser->callback(
        [&daemon, &chosen, isJson] { chosen = [&daemon, isJson] { return PrintStatus(daemon, *isJson); }; });
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
