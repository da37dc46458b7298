#pragma once

// The state behind the player's GPIO input driver, without its device node: which pins there are, which way
// they go, which levels they have. An input level is a key and an output level an LED in evdev's terms. Not
// safe for use by several threads at once.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "virtual_player/gpio/evdev_queue.h"

namespace VirtualPlayer {

/// Masks of pins; bit n is pin n.
struct GpioPins {
    std::uint32_t offeredInputs = 0x1FFF;
    std::uint32_t offeredOutputs = 0x1FFF;
    std::uint32_t switchable = 0x1F00;
};

class GpioModel {
public:
    /// All levels are 0, all switchable pins are inputs.
    explicit GpioModel(const GpioPins& pins) : m_pins(pins) {}

    /// Changes the level of an input. @return its key code, or nothing if it has that level already
    /// @throws std::invalid_argument if the pin is not offered as an input
    std::optional<unsigned> SetLevel(unsigned pin, bool level);

    /// Does what an LED event written to the driver asks for. What the pins do not offer is ignored, as evdev
    /// ignores codes that a device has not.
    /// @return whether the state of an LED, a level or a direction, is another now
    bool Write(unsigned code, std::int32_t value);

    CodeBitmap OfferedKeys() const;
    CodeBitmap OfferedLeds() const;  ///< with the codes of the pins whose direction can be switched
    CodeBitmap Keys() const;
    CodeBitmap Leds() const;  ///< levels of outputs, and directions (1: output)

    /// Everything that can change, as one line of key=value words.
    std::string Describe() const;

private:
    const GpioPins m_pins;
    std::uint32_t m_levels = 0;
    std::uint32_t m_outputs = 0;
    std::uint32_t m_directions = 0;
    std::map<unsigned, std::int32_t> m_parameters;  ///< as written last, by pin
};

}  // namespace VirtualPlayer
