#pragma once

// For death tests: assertion reports in their console form, on standard error, where gtest looks.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

/// Call in the dying process. Only root can open the kernel log. Other threads see an interrupted system
/// call.
inline void ReportOnConsole() {
    constexpr uid_t NOBODY = 65534;
    dup2(STDERR_FILENO, STDOUT_FILENO);
    if (getuid() == 0 && setuid(NOBODY) != 0) {
        _exit(EXIT_FAILURE);
    }
}

template <class Body>
void RunOnConsole(Body body) {
    ReportOnConsole();
    body();
}

/// Expects a failing assertion to end the process, after a report that matches.
/// @param report what the console must show
/// @param ... the statements that end the process
#define EXPECT_ABORT(report, ...) \
    EXPECT_EXIT(RunOnConsole([&] { __VA_ARGS__; }), testing::KilledBySignal(SIGABRT), report)
