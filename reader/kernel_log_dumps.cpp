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

namespace TAVO::FileMigrateOrvane::Reader {
namespace {

namespace fs = std::filesystem;

/// The daemon takes the record's time, syncs the record to disk and then writes the dump.
constexpr std::chrono::seconds LONGEST_DELAY{30};
/// The local time as if it were UTC, so that two of them can be subtracted.
std::chrono::sys_seconds Instant(const std::string& times) {
    const auto number = [&times](std::size_t at, std::size_t digits) { return std::stoi(times.substr(at, digits)); };
    const std::chrono::year_month_day day{std::chrono::year(number(0, 4)),
                                          std::chrono::month(static_cast<unsigned>(number(4, 2))),
                                          std::chrono::day(static_cast<unsigned>(number(6, 2)))};
    return std::chrono::sys_days(day) + std::chrono::hours(number(8, 2)) + std::chrono::minutes(number(10, 2)) +
           std::chrono::seconds(number(12, 2));
}

std::optional<KernelLogDump> FromName(const std::string& name) {
    const std::size_t at = name.rfind(DUMP_SEPARATOR);
    if (at == std::string::npos || name.size() - at != 1 + TIME_DIGITS ||
        name.find_first_not_of("0123456789", at + 1) != std::string::npos) {
        return std::nullopt;
    }
    return KernelLogDump{name, name.substr(0, at), name.substr(at + 1), {}, 0};
}

void ReadContent(const std::string& directory, KernelLogDump& dump) {
    errno = 0;
    std::ifstream file(directory + "/" + dump.name, std::ios::binary);
    dump.content.assign(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open() || file.bad()) {
        dump.errorNumber = errno != 0 ? errno : EIO;
    }
}

}  // namespace

std::vector<KernelLogDump> KernelLogDumps(const std::string& directory, int& err) {
    std::vector<KernelLogDump> dumps;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        std::optional<KernelLogDump> dump = FromName(entry->path().filename().native());
        if (dump) {
            ReadContent(directory, *dump);
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
    int labelResult = 0;
    for (const Snapshot& snapshot : record.snapshots) {
        if (const auto* const label = std::get_if<LabelResult>(&snapshot)) {
            labelResult = label->ret;
        }
    }
    return HasKernelLogDump(record.type, record.errorNumber.value_or(0), labelResult);
}

bool MayBelong(const KernelLogDump& dump, const Record& record) {
    if (dump.type != record.type || dump.times < record.times || !IsDumped(record)) {
        return false;
    }
    return Instant(dump.times) - Instant(record.times) <= LONGEST_DELAY;
}

}  // namespace TAVO::FileMigrateOrvane::Reader
