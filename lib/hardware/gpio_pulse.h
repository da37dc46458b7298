#pragma once

// Pulses on output pins, made in software: while a pin pulses, a thread named "GPIOPulse" steps it through
// its cycle on the monotonic clock, so that setting the wall clock changes nothing.
//
// Time is counted in steps of one period. A cycle is a fixed number of steps, the same for all pins, and all
// pins are at the same step of it; each is high for the first so many steps of the cycle and low for the
// rest. Steps begin at fixed times after the first one: a late step does not delay those after it, and steps
// that were missed altogether are counted but not made up for. While no pin has a level to change, the thread
// sleeps.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "lib/platform/condition_variable.h"
#include "lib/platform/fair_recursive_mutex.h"

namespace ExternalControl::Impl {

/// How pins pulse.
struct PulseSettings {
    std::chrono::microseconds period{1000};  ///< time between two steps
    unsigned steps = 10;                     ///< number of steps in a cycle

    /// The settings closest to what was asked for.
    /// @param periodMicroseconds  0 for the default of 1000; at least 100
    /// @param steps               0 for the default of 10; 2 to 32
    static PulseSettings ForRequest(unsigned periodMicroseconds, unsigned steps);

    /// Whether period and number of steps are the same.
    bool operator==(const PulseSettings&) const = default;
};

/// Pins are 0 to 31. Several threads may call the operations at once, but none that holds the output mutex.
class PulseEngine {
public:
    /// Sets the level of an output pin. Called with the output mutex held, on the engine's thread or inside
    /// an operation; calls no operation itself.
    using LevelWriter = std::function<void(unsigned pin, bool level)>;

    /// Told that a level which cannot be set has ended the pulse of a pin. Called as the LevelWriter is.
    using FailureCallback = std::function<void(unsigned pin)>;

    /// @param outputMutex  serialises all changes of the outputs; outlives the engine. Fair: where writing a
    ///                     level takes longer than a period, others get it only between two steps.
    /// @param writeLevel   sets levels; required
    PulseEngine(strata::FairRecursiveMutex& outputMutex, LevelWriter writeLevel);

    /// Ends all pulses, at once even within a long period. Their pins are left low, and so are those that a
    /// failure left high; what fails there is reported by a message.
    ~PulseEngine();

    PulseEngine(const PulseEngine&) = delete;
    PulseEngine& operator=(const PulseEngine&) = delete;

    /// Replaces the callback for failures. May be empty.
    void SetFailureCallback(FailureCallback callback);

    /// Changes the settings. A new period is that of the steps from the next one on. A new number of steps
    /// ends all pulses as the end of the engine does.
    void Configure(const PulseSettings& settings);

    /// Starts the pulse of a pin, or changes it. A level that cannot be set ends the pulse later, with a
    /// message; the pin may be left high then, until Stop.
    /// @param pin        an output, 0 to 31
    /// @param highSteps  number of steps in the cycle for which the pin is high: 0 for always low, the number
    ///                   of steps or more for always high
    /// @throws std::system_error when there is no thread to be had; the pin does not pulse then
    void Start(unsigned pin, unsigned highSteps);

    /// Ends the pulse of a pin and leaves the pin low, also one that a failure left high. Nothing happens to
    /// any other pin.
    /// @throws what the writer throws; the pulse has ended all the same, and calling again tries again
    void Stop(unsigned pin);

private:
    struct Pulse {
        unsigned highSteps = 0;
        std::optional<bool> level;  ///< the level last written; none yet in the beginning
    };

    void EndAllPulses();
    void EndIdleThread();
    void SetEndedLow();

    void Run();
    bool LevelsChange() const;
    void WriteLevels();

    strata::FairRecursiveMutex& m_outputMutex;
    const LevelWriter m_writeLevel;
    strata::condition_variable m_wake;
    // These five change under the output mutex.
    FailureCallback m_failureCallback;
    PulseSettings m_settings;
    unsigned m_step = 0;                 ///< of the cycle, that pins are at
    std::map<unsigned, Pulse> m_pulses;  ///< by pin; once there is none left the thread returns
    std::uint32_t m_ended = 0;           ///< pins still to be set low after a pulse, even if they pulse again
    std::mutex m_operation;              ///< serialises the operations; never waited for by the thread
    std::thread m_thread;                // guarded by m_operation
};

}  // namespace ExternalControl::Impl
