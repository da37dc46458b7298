#include "lib/hardware/gpio_pulse.h"

#include <sys/prctl.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "lib/platform/message.h"
#include "lib/platform/monotonic_time.h"

namespace ExternalControl::Impl {
namespace {

constexpr unsigned MASK_PINS = 32;

/// As good as for ever.
constexpr std::chrono::hours IDLE_WAIT{24};

/// @return the bit of a pin in a mask; none for a pin that no port has
std::uint32_t PinBit(unsigned pin) {
    return pin < MASK_PINS ? std::uint32_t{1} << pin : 0;
}

}  // namespace

PulseSettings PulseSettings::ForRequest(unsigned periodMicroseconds, unsigned steps) {
    constexpr unsigned MIN_PERIOD = 100;
    constexpr unsigned MIN_STEPS = 2;
    constexpr unsigned MAX_STEPS = 32;

    PulseSettings settings;
    if (periodMicroseconds != 0) {
        settings.period = std::chrono::microseconds(std::max(periodMicroseconds, MIN_PERIOD));
    }
    if (steps != 0) {
        settings.steps = std::clamp(steps, MIN_STEPS, MAX_STEPS);
    }
    return settings;
}

PulseEngine::PulseEngine(strata::FairRecursiveMutex& outputMutex, LevelWriter writeLevel)
    : m_outputMutex(outputMutex), m_writeLevel(std::move(writeLevel)) {}

PulseEngine::~PulseEngine() {
    EndAllPulses();
}

void PulseEngine::SetFailureCallback(FailureCallback callback) {
    const std::lock_guard lock(m_outputMutex);
    m_failureCallback.swap(callback);  // the old one is destroyed without the mutex
}

void PulseEngine::Configure(const PulseSettings& settings) {
    const std::lock_guard operation(m_operation);
    // Only operations change the settings: to read them here takes no output mutex.
    if (settings.steps != m_settings.steps) {
        EndAllPulses();
    }
    const std::lock_guard lock(m_outputMutex);
    m_settings = settings;
}

void PulseEngine::Start(unsigned pin, unsigned highSteps) {
    const std::lock_guard operation(m_operation);
    {
        const std::lock_guard lock(m_outputMutex);
        const bool running = !m_pulses.empty();
        m_pulses[pin].highSteps = highSteps;
        if (running) {
            m_wake.notify_one();
            return;
        }
    }
    if (m_thread.joinable()) {
        // The thread has returned or is about to: its last pulse ended because a level could not be set.
        m_thread.join();
    }
    try {
        m_thread = std::thread(&PulseEngine::Run, this);
    } catch (...) {
        const std::lock_guard lock(m_outputMutex);
        m_pulses.clear();
        throw;
    }
}

void PulseEngine::Stop(unsigned pin) {
    const std::lock_guard operation(m_operation);
    {
        const std::lock_guard lock(m_outputMutex);
        if (m_pulses.erase(pin) != 0) {
            m_ended |= PinBit(pin);
        }
        if ((m_ended & PinBit(pin)) == 0) {
            return;
        }
    }
    EndIdleThread();
    const std::lock_guard lock(m_outputMutex);
    m_writeLevel(pin, false);
    m_ended &= ~PinBit(pin);
}

void PulseEngine::EndAllPulses() {
    {
        const std::lock_guard lock(m_outputMutex);
        for (const auto& [pin, pulse] : m_pulses) {
            m_ended |= PinBit(pin);
        }
        m_pulses.clear();
    }
    EndIdleThread();
    SetEndedLow();
}

/// Waits for the end of the thread if it has nothing left to do.
void PulseEngine::EndIdleThread() {
    {
        const std::lock_guard lock(m_outputMutex);
        if (!m_pulses.empty()) {
            return;
        }
    }
    m_wake.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void PulseEngine::SetEndedLow() {
    const std::lock_guard lock(m_outputMutex);
    for (unsigned pin = 0; pin < MASK_PINS; ++pin) {
        if ((m_ended & PinBit(pin)) == 0) {
            continue;
        }
        try {
            m_writeLevel(pin, false);
            m_ended &= ~PinBit(pin);
        } catch (const std::exception& e) {
            PLATFORM_MESSAGE("GPIOPulse: pin %u is not set low after its pulse: %s\n", pin, e.what());
        }
    }
}

// --- On the engine's thread ---

void PulseEngine::Run() {
    // Without a name or the finer timer slack the thread works all the same.
    prctl(PR_SET_NAME, "GPIOPulse");
    prctl(PR_SET_TIMERSLACK, 1UL);
    std::unique_lock lock(m_outputMutex);
    m_step = 0;
    strata::monotonic_time nextStep = strata::get_monotonic_time() + m_settings.period;
    for (;;) {
        WriteLevels();
        if (m_pulses.empty()) {
            return;
        }
        // Start and Stop wake the thread before the step is over: it then finds the same step, and writes the
        // levels of the pulses that were started or changed. While no pin has a level to change, there is no
        // step to wait for.
        m_wake.do_wait_until(lock, LevelsChange() ? nextStep : nextStep + IDLE_WAIT);
        const strata::monotonic_time now = strata::get_monotonic_time();
        if (now >= nextStep) {
            const auto begun = 1 + (now - nextStep) / m_settings.period;
            m_step = static_cast<unsigned>((m_step + begun) % m_settings.steps);
            nextStep += begun * m_settings.period;
        }
    }
}

bool PulseEngine::LevelsChange() const {
    return std::ranges::any_of(m_pulses, [this](const auto& entry) {
        const unsigned highSteps = entry.second.highSteps;
        return highSteps > 0 && highSteps < m_settings.steps;
    });
}

void PulseEngine::WriteLevels() {
    for (auto entry = m_pulses.begin(); entry != m_pulses.end();) {
        auto& [pin, pulse] = *entry;
        const bool level = m_step < pulse.highSteps;
        try {
            if (level != pulse.level) {
                m_writeLevel(pin, level);
                pulse.level = level;
            }
            ++entry;
        } catch (const std::exception& e) {
            PLATFORM_MESSAGE("GPIOPulse: the pulse of pin %u ends: %s\n", pin, e.what());
            if (pulse.level == true) {
                m_ended |= PinBit(pin);
            }
            if (m_failureCallback) {
                m_failureCallback(pin);
            }
            entry = m_pulses.erase(entry);
        }
    }
}

}  // namespace ExternalControl::Impl
