#pragma once

// SIGINT, SIGTERM and SIGHUP as something to wait for, without a handler.

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <cerrno>

#include "lib/platform/errno_exception.h"
#include "lib/platform/unique_fd.h"

/// The signals that end a program, as a descriptor to poll.
class StopSignals {
public:
    /// Blocks the signals for this thread and those that it starts: to be made before there are others, for
    /// one that has a signal unblocked would end the process. They stay blocked. SIGHUP is left alone where
    /// it is ignored, for nohup.
    /// @throws ErrnoException "sigaction", "pthread_sigmask", "signalfd"
    StopSignals() {
        sigemptyset(&m_signals);
        sigaddset(&m_signals, SIGINT);
        sigaddset(&m_signals, SIGTERM);
        struct sigaction hangup {};
        if (sigaction(SIGHUP, nullptr, &hangup) < 0) {
            throw ErrnoException(errno, "sigaction");
        }
        if (hangup.sa_handler != SIG_IGN) {
            sigaddset(&m_signals, SIGHUP);
        }
        ChangeMask(SIG_BLOCK);
        m_descriptor.Reset(signalfd(-1, &m_signals, SFD_CLOEXEC));
        if (!m_descriptor.IsOpen()) {
            throw ErrnoException(errno, "signalfd");
        }
    }

    /// Does what may take long, and may be left undone at any moment: a signal ends the process meanwhile, as
    /// it does by default. Main thread only.
    template <class Work>
    auto DoInterruptibly(const Work& work) const {
        const Unblocked unblocked(*this);
        return work();
    }

    /// @return a descriptor that is readable from the first signal on; nobody reads it
    int GetFd() const { return m_descriptor.Get(); }

    /// Waits for a signal, or until something else is readable. Any thread.
    /// @throws ErrnoException "poll"
    void WaitForThemOr(int descriptor) const {
        pollfd wanted[] = {{GetFd(), POLLIN, 0}, {descriptor, POLLIN, 0}};
        while (poll(wanted, 2, -1) < 0) {
            if (errno != EINTR) {
                throw ErrnoException(errno, "poll");
            }
        }
    }

private:
    class Unblocked {
    public:
        explicit Unblocked(const StopSignals& signals) : m_signals(signals) {
            m_signals.ChangeMask(SIG_UNBLOCK);
        }
        // The same call has just succeeded, and it only fails for what cannot be.
        // NOLINTNEXTLINE(bugprone-exception-escape)
        ~Unblocked() { m_signals.ChangeMask(SIG_BLOCK); }

    private:
        const StopSignals& m_signals;
    };

    void ChangeMask(int how) const {
        if (const int error = pthread_sigmask(how, &m_signals, nullptr)) {
            throw ErrnoException(error, "pthread_sigmask");
        }
    }

    sigset_t m_signals;
    strata::UniqueFd m_descriptor;
};
