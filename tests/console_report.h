#pragma once

// For death tests: assertion reports in their console form, on standard error, where gtest looks.

#include <unistd.h>

#include <cstdlib>

/// Call in the dying process. Only root can open the kernel log. Other threads see an interrupted system call.
inline void ReportOnConsole() {
    constexpr uid_t NOBODY = 65534;
    dup2(STDERR_FILENO, STDOUT_FILENO);
    if (getuid() == 0 && setuid(NOBODY) != 0) {
        _exit(EXIT_FAILURE);
    }
}
