#pragma once

// What the main functions of the benchmarks have in common.

#include <functional>

/// Runs the benchmarks that the arguments choose.
/// @param argc, argv  the program's arguments: Google Benchmark's options
/// @param prepare     registers the benchmarks; what it throws is reported
/// @return the exit status
int RunBenchmarks(int argc, char** argv, const std::function<void()>& prepare);
