// What a diagnostics report costs the poll thread: reports/decode/N with N groups from its first value to the
// live state, and reports/lines/N with the lines of --output-diagnostics, which go to /dev/null: what else a
// write costs depends on who reads it.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "apps/padtune/touch_board_reports.h"
#include "bench/allocation_count.h"
#include "bench/run_benchmarks.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/unique_fd.h"
#include "tests/report_builder.h"

namespace {

constexpr int MOST_GROUPS = 7;
constexpr unsigned VALUE_BITS = 32;

void SendStandardErrorToNull() {
    const strata::UniqueFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (null.Get() < 0 || dup2(null.Get(), STDERR_FILENO) < 0) {
        throw ErrnoException(errno, "/dev/null");
    }
}

/// @param state its range is the number of groups
void Decode(benchmark::State& state, bool lines) {
    LiveState live;
    live.runStart = 1;
    TouchBoardReports reports(live);
    const auto receive = [&](unsigned index, std::uint32_t value) {
        reports.OnValue(index, value, VALUE_BITS);
    };
    OutputDiagnostics = lines;
    ReportBuilder::Setup().Deliver(receive);
    ReportBuilder report = ReportBuilder::Diagnostics(0b101);
    for (std::uint32_t button = 1; button <= static_cast<std::uint32_t>(state.range(0)); ++button) {
        report.Sample(button, 1360 + button, 1236 + button, 118, 8);
    }
    for (int i = 0; i < 2; ++i) {  // the live state and the decoder exchange lists
        report.Deliver(receive);
    }
    const std::uint64_t allocations = CountAllocations();
    while (state.KeepRunning()) {
        report.Deliver(receive);
    }
    state.counters["allocations"] = benchmark::Counter(static_cast<double>(CountAllocations() - allocations),
                                                       benchmark::Counter::kAvgIterations);
}

}  // namespace

int main(int argc, char** argv) {
    return RunBenchmarks(argc, argv, [] {
        benchmark::RegisterBenchmark("reports/decode", Decode, false)->DenseRange(1, MOST_GROUPS);
        benchmark::RegisterBenchmark("reports/lines", Decode, true)->DenseRange(1, MOST_GROUPS);
        SendStandardErrorToNull();
    });
}
