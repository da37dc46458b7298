#pragma once

// Reads and writes of an exact length, and of whole files.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include "lib/platform/assertion.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/unique_fd.h"

/// Reads exactly length bytes. Any thread. An interrupted call counts as failed.
/// @throws ErrnoException "read_all_throw" when a read fails; EIO without context at an early end of file
inline void read_all_throw(int fd, void* buffer, size_t length) {
    auto* next = static_cast<char*>(buffer);
    while (length > 0) {
        const ssize_t n = read(fd, next, length);
        if (n < 0) {
            throw ErrnoException(errno, "read_all_throw");
        }
        if (n == 0) {
            throw ErrnoException(EIO);
        }
        next += n;
        length -= static_cast<size_t>(n);
    }
}

/// Writes exactly length bytes. Any thread. An interrupted call counts as failed.
/// @throws ErrnoException without context when a write fails
inline void write_all_throw(int fd, const void* data, size_t length) {
    const auto* next = static_cast<const char*>(data);
    while (length > 0) {
        const ssize_t n = write(fd, next, length);
        if (n < 0) {
            throw ErrnoException(errno);
        }
        PLATFORM_ASSERT_AT("lib/platform/posix_helpers.h", 217,
                           "void write_all_throw(int, const void*, size_t)", n != 0);
        next += n;
        length -= static_cast<size_t>(n);
    }
}

/// Reads a whole file into a string. Any thread.
/// @throws ErrnoException with the path
inline std::string read_file_throw(const std::string& path) {
    const strata::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        throw ErrnoException(errno, path);
    }
    std::string content;
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(file.Get(), buffer, sizeof buffer);
        if (n < 0) {
            throw ErrnoException(errno, path);
        }
        if (n == 0) {
            return content;
        }
        content.append(buffer, static_cast<size_t>(n));
    }
}
