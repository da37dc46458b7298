#pragma once

// SIGINT and SIGTERM as something to wait for, without a handler.

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <cerrno>

#include "lib/platform/posix_helpers.h"
#include "lib/platform/unique_fd.h"

class StopSignals {
public:
    /// Blocks the signals for this thread and those that it starts: to be made before there are others, for
    /// one that has a signal unblocked would end the process. They stay blocked.
    /// @throws ErrnoException "pthread_sigmask", "signalfd"
    StopSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        if (const int error = pthread_sigmask(SIG_BLOCK, &signals, nullptr)) {
            throw ErrnoException(error, "pthread_sigmask");
        }
        m_descriptor.Reset(signalfd(-1, &signals, SFD_CLOEXEC));
        if (!m_descriptor.IsOpen()) {
            throw ErrnoException(errno, "signalfd");
        }
    }

    /// @return a descriptor that is readable from the first signal on; nobody reads it
    int GetFd() const { return m_descriptor.Get(); }

    /// Waits for a signal. Any thread.
    /// @throws ErrnoException "poll"
    void Wait() const {
        pollfd signals{GetFd(), POLLIN, 0};
        while (poll(&signals, 1, -1) < 0) {
            if (errno != EINTR) {
                throw ErrnoException(errno, "poll");
            }
        }
    }

private:
    strata::UniqueFd m_descriptor;
};
