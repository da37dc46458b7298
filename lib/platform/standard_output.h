#pragma once

// Standard output of the commands that print and end: a table that got lost on its way is no success.

#include <cerrno>
#include <cstdio>

#include "lib/platform/errno_exception.h"

/// To be called when all is printed. Main thread only.
/// @throws ErrnoException when something that was printed did not get out
inline void FlushStandardOutput() {
    if (std::fflush(stdout) == EOF || std::ferror(stdout) != 0) {
        throw ErrnoException(errno, "standard output");
    }
}
