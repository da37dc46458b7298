#pragma once

// External control ports: one addressable group of pins or values on a device outside the player, such as the
// LEDs of a touch board, or the player's own lines. Every consumer talks to a port through
// ExternalControl::Port and gets it by name from OpenPort (open_port.h).

#include <functional>
#include <stdexcept>
#include <string>

namespace ExternalControl {

/// What a port received. Runs on the poll thread: keep it short. Open and release no port from here: both may
/// wait for a thread that waits for this callback. Commands may be given, but hold up all callbacks of the
/// process while they wait for a device.
/// @param pin    pin number, or index of the value
/// @param value  a level (0 or 1), or the value as received
/// @param width  1 for a level, 32 for a value
using InputCallback = std::function<void(unsigned pin, unsigned value, unsigned width)>;

/// The port's device has been gone for 10 seconds. Runs on the poll thread, as an InputCallback. If it drops
/// the last owner of its port, the process ends.
using LostCallback = std::function<void()>;

/// The player's own lines do not have this pin, or not for this use.
class PinNotAvailableException : public std::runtime_error {
public:
    PinNotAvailableException() : std::runtime_error("Pin not available") {}
};

/// A port. Pins are numbered from 0; in a mask, bit n stands for pin n. Commands are given from one thread,
/// and block for about 10 seconds when a device does not answer; one that meets the return of such a device
/// waits as long again, for the value that is being restored. They never wait for a callback of a
/// pin, so the caller may hold what such callbacks take; who opens or releases a port, or sets its value
/// callback, may not. A failing device is an ErrnoException, for most operations with their name. Questions
/// about one pin of the player's own lines throw PinNotAvailableException for a pin above 31.
///
/// There is no virtual destructor: ports are made by std::make_shared of the concrete type and owned through
/// std::shared_ptr, which remembers it.
class Port {
public:
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    /// Number of pins, or of values.
    virtual unsigned GetPinCount() = 0;

    /// Version of the device, as text; boards only, empty from other ports.
    virtual std::string GetVersion() = 0;

    /// What is known about the device, as semicolon-separated pairs "key=value"; may be empty.
    virtual std::string GetProperties() { return {}; }

    /// Makes a pin an input. Where it is one for good nothing happens, except that the player's own lines
    /// throw.
    /// @throws std::runtime_error when it cannot be one
    virtual void ConfigureInput(unsigned pin) = 0;
    /// @return whether a pin is an input; on the player's own lines true for outputs for good, too
    virtual bool IsInput(unsigned pin) = 0;

    /// @return the level of an input pin
    virtual bool GetInput(unsigned pin) = 0;
    /// @return the levels of all input pins, as a mask
    virtual unsigned ReadAllInputs() = 0;

    /// Makes a pin an output. Where it is one for good nothing happens, except that the player's own lines
    /// throw.
    /// @throws std::runtime_error when it cannot be one
    virtual void ConfigureOutput(unsigned pin) = 0;
    /// @return whether a pin is an output
    virtual bool IsOutput(unsigned pin) = 0;

    /// @return the level that an output pin of the player's own lines is set to; false for the pins of a
    ///         board, whose outputs only ReadAllOutputs tells
    virtual bool GetOutput(unsigned pin) = 0;
    /// @return the levels that the output pins are set to, as a mask
    virtual unsigned ReadAllOutputs() = 0;

    /// Sets all outputs to the levels of a mask.
    virtual void SetAllLevels(unsigned mask) = 0;
    /// Sets the first outputs to the given values.
    /// @param values  one a pin, from pin 0 on
    /// @param count   number of values; those beyond the port's pins are left out
    virtual void SetOutputs(const unsigned* values, unsigned count) = 0;
    /// Sets one output.
    virtual void SetOutput(unsigned pin, unsigned value) = 0;

    /// Sets how outputs pulse: in cycles of so many steps, a step in every period. This and the next three
    /// return whether the port can do it. While outputs pulse, a new period counts from the next step; a new
    /// number of steps ends their pulses and leaves them low.
    /// @param period  microseconds between two steps, raised to 100 if less; 0 for the default of 1000
    /// @param steps   steps in a cycle, brought into the range of 2 to 32; 0 for the default of 10
    virtual bool ConfigurePulse(unsigned /*period*/, unsigned /*steps*/) { return false; }
    /// Lets an output pulse, or changes its pulse, until StopPulse or the end of the port. SetOutput on a
    /// pulsing output lasts until the pulse next changes the level. A device that fails then ends the pulse,
    /// with a message, and may leave the output high until StopPulse. Stop the pulse before the pin is made
    /// an input.
    /// @param pin    0 to 31
    /// @param value  the steps of a cycle for which the output is high: 0 for never, the number of steps or
    ///               more for always
    /// @return false also for a pin that is no output
    /// @throws PinNotAvailableException for a pin above 31, where outputs can pulse
    /// @throws std::system_error when there is no thread to be had for the first pulse
    virtual bool StartPulse(unsigned /*pin*/, unsigned /*value*/) { return false; }
    /// Ends the pulse of an output and leaves it low, also after a failure ended the pulse and left it high;
    /// any other output stays as it is.
    virtual bool StopPulse(unsigned /*pin*/) { return false; }
    /// Switches a pin to one of its alternate functions.
    /// @return false also for an unknown pin or function
    virtual bool SetPinFunction(unsigned /*pin*/, const std::string& /*function*/) { return false; }

    /// Replaces the second callback, which gets every value that a board sends, changed or not, with width
    /// 32; other ports have none. Any thread, the callback itself included. Waits for a callback that is
    /// running: nothing that one takes may be held.
    // NOLINTNEXTLINE(performance-unnecessary-value-param): ports that keep the callback move it
    virtual void SetValueCallback(InputCallback /*callback*/) {}

protected:
    Port() = default;
    ~Port() = default;
};

}  // namespace ExternalControl
