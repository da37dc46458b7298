#pragma once

// The port on the player's own lines, through the input device of the kernel's GPIO driver. Changes of input
// pins are its key events, levels and directions of output pins its LEDs.
//
// The commands may be given from several threads. Changes of the outputs, those of pulses included, exclude
// each other by the output mutex. The poll thread only reads: it waits for nobody.

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "lib/hardware/external_control.h"
#include "lib/hardware/gpio_pulse.h"
#include "lib/platform/fair_recursive_mutex.h"
#include "lib/platform/poll_thread.h"
#include "lib/platform/unique_fd.h"

struct input_event;

namespace ExternalControl::Impl {

/// The port of the player's own lines.
class PortOnLinuxInputDriver final : public Port, public Pollable, public TimerClient {
public:
    /// The node of the driver.
    static constexpr const char* DEVICE_PATH = "/dev/input/vantora-gpio";

    /// Opens the port and attaches it to the PollThread. Any thread.
    /// @throws ErrnoException when there is no such device or it fails
    static std::shared_ptr<PortOnLinuxInputDriver> Open(InputCallback inputCallback);

    /// For Open: opens the device.
    explicit PortOnLinuxInputDriver(InputCallback inputCallback);

    /// Not from a callback: waits for one that is running. Ends all pulses and leaves their pins low.
    ~PortOnLinuxInputDriver() override;

    unsigned GetPinCount() override { return PIN_COUNT; }
    std::string GetVersion() override { return {}; }
    /// @throws PinNotAvailableException unless the direction can be switched, an input for good included
    void ConfigureInput(unsigned pin) override;
    /// Deliberately true for every pin that is not switched to output, be it an output for good.
    bool IsInput(unsigned pin) override;
    bool GetInput(unsigned pin) override;
    unsigned ReadAllInputs() override;
    /// @throws PinNotAvailableException unless the direction can be switched, an output for good included
    void ConfigureOutput(unsigned pin) override;
    bool IsOutput(unsigned pin) override;
    bool GetOutput(unsigned pin) override;
    unsigned ReadAllOutputs() override;
    void SetAllLevels(unsigned mask) override;
    void SetOutputs(const unsigned* values, unsigned count) override;
    void SetOutput(unsigned pin, unsigned value) override;
    bool ConfigurePulse(unsigned period, unsigned steps) override;
    bool StartPulse(unsigned pin, unsigned value) override;
    bool StopPulse(unsigned pin) override;
    bool SetPinFunction(unsigned pin, const std::string& function) override;

    /// Sets the driver's own 8-bit parameter of a pin, whose meaning is the driver's.
    /// @throws PinNotAvailableException unless the direction can be switched; nothing is written then
    void SetPinParameter(unsigned pin, std::uint8_t value);

    /// Replaces the callback for pulses that a failure of the device ended. Any thread, but not that
    /// callback.
    /// @param callback  runs on the pulses' thread, for each pin; commands nothing, and takes nothing that is
    ///                  held during a command, for commands wait for it. May be empty.
    void SetPulseFailureCallback(std::function<void(unsigned pin)> callback) {
        m_pulses.SetFailureCallback(std::move(callback));
    }

    // What the driver offers, as masks of pins. It never changes. A pin whose direction cannot be switched is
    // an input for good, an output for good, both at once, or not there.
    std::uint32_t GetOfferedInputs() const { return m_input.offered; }    ///< pins that have a level to read
    std::uint32_t GetOfferedOutputs() const { return m_output.offered; }  ///< pins that have a level to set
    /// Pins whose direction can be switched
    std::uint32_t GetSwitchablePins() const { return m_output.switchable; }

    /// All pins at one moment, as masks.
    struct Snapshot {
        std::uint32_t inputs;      ///< levels that the inputs have
        std::uint32_t outputs;     ///< levels that the outputs are set to
        std::uint32_t directions;  ///< set: switched to output
    };
    /// Asks the driver once for the inputs, then once for the rest. Any thread.
    /// @throws ErrnoException when the device fails
    Snapshot ReadSnapshot() const;

    /// When the change happened whose input callback is running: for that callback, on the poll thread.
    /// @return the kernel's time of the event, in nanoseconds of the monotonic clock; from a driver that only
    ///         knows the wall clock, the time at which the event was read; for a change whose event was lost,
    ///         the time at which it was found
    std::int64_t GetEventTime() const { return m_eventTime; }

    /// Replaces the callback for lost events. Any thread, but not that callback; waits for a callback that is
    /// running, so nothing that a callback takes may be held.
    /// @param callback  runs on the poll thread when the kernel had no more room for events. The input
    ///                  callback follows with the inputs whose levels are not those reported last; how often
    ///                  they changed in between is lost. May be empty.
    void SetDroppedCallback(std::function<void()> callback);

    int GetFd() override;
    void OnActivity(short revents) override;
    /// For the PollThread: it is time to try again after a failure.
    void OnRetryTimer(std::uintptr_t);

private:
    static constexpr unsigned PIN_COUNT = 13;

    enum class Direction { INPUT, OUTPUT };

    /// One of the two handles on the device.
    struct Side {
        /// @param type  of the events that stand for levels
        explicit Side(unsigned type);

        /// Whether the direction of a pin can be switched.
        bool IsSwitchable(unsigned pin) const;

        strata::UniqueFd device;
        unsigned eventType;
        std::uint32_t offered = 0;     ///< pins that the device has for these events
        std::uint32_t switchable = 0;  ///< pins whose direction can be switched
    };

    void Start();

    std::uint32_t ReadInputLevels() const;
    std::uint32_t ReadOutputLevels() const;
    /// The pins that are switched to output.
    std::uint32_t ReadDirections() const;
    /// The pins that are outputs, for good or switched.
    std::uint32_t ReadOutputPins() const;

    void SetDirection(unsigned pin, Direction direction);
    void WriteCommand(unsigned code, int value);
    void WriteLevel(unsigned pin, bool level);
    void CheckOutputs() const;

    void LetGo();
    bool ReadEvent(input_event& event) const;
    std::int64_t TimeOf(const input_event& event) const;
    void HandleEvent(const input_event& event);
    void HandleChange(unsigned pin, bool level);
    void ReportDifferences();
    void RetryLater(const std::exception& failure);

    Side m_input;
    Side m_output;
    const bool m_hasMonotonicTimes;  ///< whether the times of the input side's events are monotonic
    const InputCallback m_inputCallback;
    // The members from here to the mutex are the poll thread's: others use them only while callbacks are
    // blocked.
    std::function<void()> m_droppedCallback;
    std::uint32_t m_levels;        ///< of the inputs, as known from what was read last
    bool m_hasLostEvents = false;  ///< whether the events up to the next SYN_REPORT mean nothing
    std::int64_t m_eventTime = 0;  ///< of the event being handled
    bool m_isFailing = false;      ///< whether it was said that reading fails, and nothing was read since
    bool m_isPaused = false;       ///< whether no event is read until the timer fires
    bool m_hasTimer = false;
    strata::FairRecursiveMutex m_outputMutex;
    PulseEngine m_pulses;  // last: its thread uses the members above until it ends
};

}  // namespace ExternalControl::Impl

namespace ExternalControl {

/// The port of the player's own lines, for programs that use more of it than ports have in common: by a
/// dynamic_cast of what opened as "vantora".
using PlayerLines = Impl::PortOnLinuxInputDriver;

}  // namespace ExternalControl
