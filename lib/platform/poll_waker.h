#pragma once

// Wakes a thread that waits in poll: a pipe whose read end the thread polls along with its other descriptors.

#include <unistd.h>

#include <cerrno>

#include "lib/platform/assertion.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/message.h"
#include "lib/platform/unique_fd.h"

/// A way to wake one thread from poll, from any other.
class PollWaker {
public:
    /// @throws ErrnoException when there is no pipe to be had
    PollWaker() {
        int ends[2];
        if (pipe(ends) != 0) {
            throw ErrnoException(errno);
        }
        m_readEnd.Reset(ends[0]);
        m_writeEnd.Reset(ends[1]);
    }

    /// The descriptor to poll for reading.
    int GetReadFd() const { return m_readEnd.Get(); }

    /// Makes the read end readable. Any thread. Blocks while the pipe is full, with 65,536 wake-ups that were
    /// not acknowledged.
    void Wake() {
        // Nothing to do about a failure; the pipe outlives its users.
        [[maybe_unused]] const ssize_t ignored = write(m_writeEnd.Get(), "!", 1);
    }

    /// Takes back one Wake; called when the read end is readable.
    void Acknowledge() {
        char byte;
        const ssize_t n = read(m_readEnd.Get(), &byte, 1);
        if (n < 0) {
            PLATFORM_MESSAGE("PollWaker::Acknowledge failed: %m\n");
        }
        PLATFORM_ASSERT_AT("lib/platform/poll_waker.h", 77, "void PollWaker::Acknowledge()", n == 1);
    }

private:
    // Declared in this order so that the write end is closed first.
    strata::UniqueFd m_readEnd;
    strata::UniqueFd m_writeEnd;
};
