#pragma once

// Pulses on output pins, made in software: while a pin pulses, a thread named "GPIOPulse" steps it through
// its cycle on the monotonic clock, so that setting the wall clock changes nothing.
//
// Time is counted in steps of one period. A cycle is a fixed number of steps, the same for all pins, and all
// pins are at the same step of it; each is high for the first so many steps of the cycle and low for the
// rest. Steps begin at fixed times after the first one: a late step does not delay those after it, and steps
// that were missed altogether are counted but not made up for.

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "lib/platform/condition_variable.h"

namespace ExternalControl::Impl {

/// How pins pulse.
struct PulseSettings {
    std::chrono::microseconds period{1000};  ///< time between two steps
    unsigned steps = 10;                     ///< number of steps in a cycle

    /// The settings closest to what was asked for.
    /// @param periodMicroseconds  0 for the default of 1000; at least 100
    /// @param steps               0 for the default of 10; 2 to 32
    static PulseSettings ForRequest(unsigned periodMicroseconds, unsigned steps);

    bool operator==(const PulseSettings&) const = default;
};

/// Several threads may call the operations at once, but none that holds the output mutex.
class PulseEngine {
public:
    /// Sets the level of an output pin. Called with the output mutex held, on the engine's thread or inside
    /// an operation; calls no operation itself.
    using LevelWriter = std::function<void(unsigned pin, bool level)>;

    /// @param outputMutex  serialises all changes of the outputs; outlives the engine
    PulseEngine(std::mutex& outputMutex, LevelWriter writeLevel);

    /// Ends all pulses, at once even within a long period. Their pins are left low.
    ~PulseEngine();

    PulseEngine(const PulseEngine&) = delete;
    PulseEngine& operator=(const PulseEngine&) = delete;

    /// Changes the settings. A new period is that of the steps from the next one on. A new number of steps
    /// ends all pulses and leaves their pins low; what fails there is reported by a message.
    void Configure(const PulseSettings& settings);

    /// Starts the pulse of a pin, or changes it. A level that cannot be set ends the pulse later, with a
    /// message.
    /// @param highSteps  number of steps in the cycle for which the pin is high: 0 for always low, the number
    /// of
    ///                   steps or more for always high
    /// @throws std::system_error when there is no thread to be had; the pin does not pulse then
    void Start(unsigned pin, unsigned highSteps);

    /// Ends the pulse of a pin and leaves the pin low. Nothing happens to a pin that does not pulse.
    /// @throws what the writer throws; the pulse has ended all the same
    void Stop(unsigned pin);

private:
    struct Pulse {
        unsigned highSteps = 0;
        std::optional<bool> level;  ///< the level last written; none yet in the beginning
    };
    using Pulses = std::map<unsigned, Pulse>;  // by pin

    void EndIdleThread();
    void SetLow(const Pulses& ended);

    void Run();
    void WriteLevels();

    std::mutex& m_outputMutex;
    const LevelWriter m_writeLevel;
    strata::condition_variable m_wake;
    PulseSettings m_settings;  // guarded by the output mutex, as all down to here
    unsigned m_step = 0;       ///< of the cycle, that pins are at
    Pulses m_pulses;           ///< once there is none left the thread returns
    std::mutex m_operation;    ///< serialises the operations; never waited for by the thread
    std::thread m_thread;      // guarded by m_operation
};

}  // namespace ExternalControl::Impl
