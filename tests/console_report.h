#pragma once

// For death tests: assertion reports in their console form, on standard error, where gtest looks.

#include <sys/resource.h>
#include <unistd.h>

/// Call in the dying process. Without room for another descriptor it cannot open the kernel log.
inline void ReportOnConsole() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
}
