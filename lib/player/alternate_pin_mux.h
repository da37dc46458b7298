#pragma once

// The player's pin multiplexer. A pin of the processor can do several things: be a general-purpose line, or
// belong to a serial port, a clock and so on. Which functions a pin has is described in the device tree
// (docs/hardware-description.md); switching goes through the multiplexer's device node.

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "lib/platform/singleton.h"
#include "lib/player/device_tree.h"

/// The functions of the processor's pins, to switch between. One object for the whole process.
class AlternatePinMux : public strata::AutoCreateSingleton<AlternatePinMux> {
public:
    /// Reads the device tree that the kernel was started with. What is malformed there is reported and left
    /// out.
    AlternatePinMux() : AlternatePinMux(DeviceTree()) {}

    /// @param deviceTree  describes the pins, as above; not used afterwards
    explicit AlternatePinMux(const DeviceTree& deviceTree);

    /// Switches a pin to one of its functions. Any thread; of two threads that switch one pin at the same
    /// time, either may be the last.
    /// @param pin       number of the pin, as the device tree gives it
    /// @param function  name of the function, in the case of the device tree
    /// @return whether the pin was switched. False for a pin or a function that is not described; false with
    ///         a message when the device fails or may not be opened; false with one message in the life of
    ///         the process when there is no multiplexer.
    bool SetPinFunction(unsigned pin, const std::string& function);

private:
    using Selectors = std::map<std::string, std::uint32_t>;  ///< by function

    static Selectors ReadSelectors(const DeviceTree& deviceTree, const std::string& node);
    const std::uint32_t* FindSelector(unsigned pin, const std::string& function) const;
    void ReportMissing(const std::string& reason);

    const std::string m_device;            ///< path of the device node; empty without a multiplexer
    std::map<unsigned, Selectors> m_pins;  ///< changes in the constructor only
    std::atomic_flag m_missingReported;
};
