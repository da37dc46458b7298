#include "bench/run_benchmarks.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>

int RunBenchmarks(int argc, char** argv, const std::function<void()>& prepare) {
    try {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 2;
        }
        prepare();
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return 1;
    }
    return 0;
}
