#include "kernel_log_dumps.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <tuple>

namespace TAVO::FileMigrateOrvane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t TIME_DIGITS = 14;
/// The record is synced to disk between its time and the dump's.
constexpr std::chrono::seconds LONGEST_DELAY{30};
/// Results of the label library after which the daemon dumps.
constexpr int LABEL_REFUSED = -13;
constexpr int LABEL_FAULT = -14;

/// A time of day and date on an even time line.
std::chrono::sys_seconds Instant(const std::string& times) {
    const auto number = [&times](std::size_t at, std::size_t digits) { return std::stoi(times.substr(at, digits)); };
    const std::chrono::year_month_day day{std::chrono::year(number(0, 4)),
                                          std::chrono::month(static_cast<unsigned>(number(4, 2))),
                                          std::chrono::day(static_cast<unsigned>(number(6, 2)))};
    return std::chrono::sys_days(day) + std::chrono::hours(number(8, 2)) + std::chrono::minutes(number(10, 2)) +
           std::chrono::seconds(number(12, 2));
}

std::optional<KernelLogDump> FromName(const std::string& name) {
    const std::size_t at = name.rfind('@');
    if (at == std::string::npos || name.size() - at != 1 + TIME_DIGITS ||
        name.find_first_not_of("0123456789", at + 1) != std::string::npos) {
        return std::nullopt;
    }
    return KernelLogDump{name, name.substr(0, at), name.substr(at + 1), {}, 0};
}

void ReadContent(KernelLogDump& dump) {
    errno = 0;
    std::ifstream file(std::string(DUMP_DIRECTORY) + "/" + dump.name, std::ios::binary);
    dump.content.assign(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open() || file.bad()) {
        dump.errorNumber = errno != 0 ? errno : EIO;
    }
}

}  // namespace

std::vector<KernelLogDump> KernelLogDumps(int& err) {
    std::vector<KernelLogDump> dumps;
    std::error_code error;
    for (fs::directory_iterator entry(DUMP_DIRECTORY, error), end; !error && entry != end; entry.increment(error)) {
        std::optional<KernelLogDump> dump = FromName(entry->path().filename().native());
        if (dump) {
            ReadContent(*dump);
            dumps.push_back(std::move(*dump));
        }
    }
    if (error && error.value() != ENOENT) {
        err = error.value();
    }
    std::sort(dumps.begin(), dumps.end(), [](const KernelLogDump& one, const KernelLogDump& other) {
        return std::tie(one.times, one.name) < std::tie(other.times, other.name);
    });
    return dumps;
}

bool IsDumped(const Record& record) {
    const int errorNumber = record.errorNumber.value_or(0);
    if (record.type == "MOVE") {
        return errorNumber == EPERM;
    }
    if (record.type == "COPY" || record.type == "CHOWN") {
        return errorNumber == EPERM || errorNumber == EINVAL;
    }
    return record.type == "RESTORECON_FROMPARENT" &&
           std::any_of(record.snapshots.begin(), record.snapshots.end(), [](const Snapshot& snapshot) {
               const auto* label = std::get_if<LabelResult>(&snapshot);
               return label != nullptr && (label->ret == LABEL_REFUSED || label->ret == LABEL_FAULT);
           });
}

bool MayBelong(const KernelLogDump& dump, const Record& record) {
    if (dump.type != record.type || dump.times < record.times || !IsDumped(record)) {
        return false;
    }
    return Instant(dump.times) - Instant(record.times) <= LONGEST_DELAY;
}

}  // namespace TAVO::FileMigrateOrvane
