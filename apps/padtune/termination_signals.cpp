#include "apps/padtune/termination_signals.h"

#include <cerrno>
#include <ctime>

#include "lib/platform/assertion.h"
#include "lib/platform/errno_exception.h"

TerminationSignals::TerminationSignals() {
    sigemptyset(&m_signals);
    for (const int number : NUMBERS) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) != 0) {
            throw ErrnoException(errno, "sigaction");
        }
        if (action.sa_handler != SIG_IGN) {
            sigaddset(&m_signals, number);
        }
    }
    if (const int error = pthread_sigmask(SIG_BLOCK, &m_signals, nullptr)) {
        throw ErrnoException(error, "pthread_sigmask");
    }
}

TerminationSignals::~TerminationSignals() {
    Release();
    if (m_taken != 0) {
        raise(m_taken);
    }
}

bool TerminationSignals::Take() {
    if (m_taken != 0) {
        return false;
    }
    constexpr timespec NOW{};
    const int number = sigtimedwait(&m_signals, nullptr, &NOW);
    if (number < 0) {
        if (errno != EAGAIN) {
            throw ErrnoException(errno, "sigtimedwait");
        }
        return false;
    }
    m_taken = number;
    Release();
    return true;
}

/// Unblocks the signals, so that they have their default action again. A pending one ends the process here.
void TerminationSignals::Release() const {
    const int error = pthread_sigmask(SIG_UNBLOCK, &m_signals, nullptr);
    PLATFORM_ASSERT(error == 0);
}
