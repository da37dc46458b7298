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
/// Likewise.
constexpr std::uint32_t APPLICATION_TOUCH_BOARD = 0xFF770001;
/// Likewise.
constexpr std::uint32_t APPLICATION_LIGHT_CONTROLLER = 0xFF880001;

/// Which fields a port has. A direction field counts as both.
constexpr std::uint32_t CAPABILITY_INPUT = 1;
/// Likewise.
constexpr std::uint32_t CAPABILITY_OUTPUT = 2;
/// Both of them.
constexpr std::uint32_t CAPABILITY_BOTH = CAPABILITY_INPUT | CAPABILITY_OUTPUT;

/// In a usage code: the usage tells a pin's direction. Pin n has the code (usage base + n) with this bit.
constexpr std::uint32_t DIRECTION_USAGE = 0x8000;

/// A group of fields that a port can be opened on.
struct Descriptor {
    static constexpr std::uint32_t NO_FIELD = 0xFFFFFFFF;  ///< as a field's index: the port has no such field

    std::uint32_t hid_device = 0;          ///< N of /dev/usb/hiddevN
    std::uint32_t capabilities = 0;        ///< of the CAPABILITY_ bits
    std::uint32_t application = 0;         ///< usage of the HID application, such as APPLICATION_TOUCH_BOARD
    std::uint32_t reportId = 0;            ///< of the one report that has the fields
    std::uint32_t inputField = NO_FIELD;   ///< index of the field in the input report, or NO_FIELD
    std::uint32_t outputField = NO_FIELD;  ///< index of the field in the output report, or NO_FIELD
    std::uint32_t directionField = NO_FIELD;  ///< likewise
    std::uint32_t usageBase = 0;              ///< usage code of pin 0
    std::uint32_t count = 0;                  ///< pins
    std::uint32_t bitsPerField = 0;           ///< of one value: 1, 8, 16 or 32
    std::uint32_t modelCode = 0;              ///< what BoardIdentity found out
    std::uint32_t headerValue = 0;            ///< the same
    std::string location;                     ///< recognises the board when it comes back; empty: unknown
    std::string nodeName;                     ///< of the device, as "/dev/usb/hiddev3"
    UsbPosition position;                     ///< empty: unknown

    /// Bits 16 to 23 of the usage code: what the fields are for.
    std::uint32_t GetUsagePage() const { return usageBase >> 16 & 0xFF; }

    /// Whether a usage value of 0 means level 1 of an input.
    bool IsActiveLow() const { return application != APPLICATION_TOUCH_BOARD; }

    // Where the values of the pins are; only for a port that has the field.
    HidField GetInputs() const;      ///< what the board sends
    HidField GetOutputs() const;     ///< what the host sets
    HidField GetDirections() const;  ///< which pins are outputs

    /// For diagnostics.
    std::string ToString() const;
};

/// Shared, for ports keep what they were opened on.
using DescriptorPtr = std::shared_ptr<Descriptor>;

}  // namespace ExternalControl::Impl
