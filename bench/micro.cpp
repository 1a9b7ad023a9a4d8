// Measures separately what a request costs besides its work on files. The log lines go to standard error; redirect it
// to /dev/null or to a file.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <string>

#include "directory_stream.h"
#include "error_record.h"
#include "log.h"
#include "reply.h"
#include "snapshot.h"

namespace TAVO::FileMigrateOrvane {
namespace {

const std::string kPath = "/data/app/el2/100/base/com.example.application/files/document.txt";

/// For comparison: the only system call of a simple query.
void Access(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(access(kPath.c_str(), F_OK));
    }
}
BENCHMARK(Access);

/// For comparison with LogLine.
void Write(benchmark::State& state) {
    const std::string line(120, 'l');
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(STDERR_FILENO, line.data(), line.size()));
    }
}
BENCHMARK(Write);

void LogLine(benchmark::State& state) {
    for (auto _ : state) {
        LogError("lstat %{public}s failed, errno=%{public}d", kPath, 2);
    }
}
BENCHMARK(LogLine);

void InformationLine(benchmark::State& state) {
    for (auto _ : state) {
        ErrInfo info{.type = "MOVE", .src = kPath, .dst = kPath, .errNo = 18};
        benchmark::DoNotOptimize(GetErrInfoRecord(info));
    }
}
BENCHMARK(InformationLine);

void Snapshots(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetStat("/") + GetXattr("/") + GetInodeFlag("/") + GetProcStat());
    }
}
BENCHMARK(Snapshots);

/// Packs a listing of `range(0)` names for the wire.
void Pack(benchmark::State& state) {
    StringList names;
    for (int64_t i = 0; i < state.range(0); ++i) {
        names.Add("document.txt", ":0");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(PackStrings(names));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Pack)->Range(1000, 100000);

}  // namespace
}  // namespace TAVO::FileMigrateOrvane

BENCHMARK_MAIN();
