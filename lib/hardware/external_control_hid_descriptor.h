#pragma once

// What a HID port can be opened on, as the finder describes it.

#include <cstdint>
#include <memory>
#include <string>

#include "lib/hardware/hiddev.h"
#include "lib/player/usb_bus_order.h"

namespace ExternalControl::Impl {

/// The HID applications of the accessory family.
constexpr std::uint32_t APPLICATION_EXPANDER = 0xFF660001;
constexpr std::uint32_t APPLICATION_TOUCH_BOARD = 0xFF770001;
constexpr std::uint32_t APPLICATION_LIGHT_CONTROLLER = 0xFF880001;

/// Which fields a port has. A direction field counts as both.
constexpr std::uint32_t CAPABILITY_INPUT = 1;
constexpr std::uint32_t CAPABILITY_OUTPUT = 2;
constexpr std::uint32_t CAPABILITY_BOTH = CAPABILITY_INPUT | CAPABILITY_OUTPUT;

/// In a usage code: the usage tells a pin's direction. Pin n has the code (usage base + n) with this bit.
constexpr std::uint32_t DIRECTION_USAGE = 0x8000;

/// A group of fields that a port can be opened on.
struct Descriptor {
    static constexpr std::uint32_t NO_FIELD = 0xFFFFFFFF;

    std::uint32_t hid_device = 0;  ///< N of /dev/usb/hiddevN
    std::uint32_t capabilities = 0;
    std::uint32_t application = 0;
    std::uint32_t reportId = 0;
    std::uint32_t inputField = NO_FIELD;
    std::uint32_t outputField = NO_FIELD;
    std::uint32_t directionField = NO_FIELD;
    std::uint32_t usageBase = 0;  ///< usage code of pin 0
    std::uint32_t count = 0;      ///< pins
    std::uint32_t bitsPerField = 0;
    std::uint32_t modelCode = 0;    ///< what BoardIdentity found out
    std::uint32_t headerValue = 0;  ///< the same
    std::string location;           ///< recognises the board when it comes back; empty: unknown
    std::string nodeName;
    UsbPosition position;  ///< empty: unknown

    /// Bits 16 to 23 of the usage code: what the fields are for.
    std::uint32_t GetUsagePage() const { return usageBase >> 16 & 0xFF; }

    /// Whether a usage value of 0 means level 1 of an input.
    bool IsActiveLow() const { return application != APPLICATION_TOUCH_BOARD; }

    // Where the values of the pins are; only for a port that has the field.
    HidField GetInputs() const;
    HidField GetOutputs() const;
    HidField GetDirections() const;

    /// For diagnostics.
    std::string ToString() const;
};

using DescriptorPtr = std::shared_ptr<Descriptor>;

}  // namespace ExternalControl::Impl
