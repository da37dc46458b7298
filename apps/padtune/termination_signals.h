#pragma once

// SIGHUP, SIGINT and SIGTERM: the first one is kept until the program asks for it, so that it can end in
// order; then the process ends by it after all, as shells and scripts expect.

#include <csignal>

/// Main thread only.
class TerminationSignals {
public:
    static constexpr int NUMBERS[] = {SIGHUP, SIGINT, SIGTERM};  ///< the signals that it is about

    /// Blocks the signals for this thread and those that it starts: to be made before there are others.
    /// Signals that are ignored, as under nohup, stay so.
    /// @throws ErrnoException "sigaction", "pthread_sigmask"
    TerminationSignals();

    /// Ends the process by the signal that was taken or that came since; returns if there was none.
    ~TerminationSignals();

    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

    /// Takes the first signal that came. All of them then have their default action: the next one ends the
    /// process at once.
    /// @return true for the one call that takes it
    /// @throws ErrnoException "sigtimedwait"
    bool Take();

private:
    void Release() const;

    sigset_t m_signals;
    int m_taken = 0;
};
