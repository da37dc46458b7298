#include "virtual_player/gpio/gpio_model.h"

#include <stdexcept>

#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

constexpr unsigned PIN_COUNT = 32;

// The first code of each kind; pin n has the nth from there.
constexpr unsigned LEVEL_CODE = 8;
constexpr unsigned DIRECTION_CODE = 40;
constexpr unsigned PARAMETER_CODE = 72;

void SetBits(CodeBitmap& bitmap, unsigned firstCode, std::uint32_t mask) {
    for (unsigned pin = 0; pin < PIN_COUNT; ++pin) {
        const unsigned code = firstCode + pin;
        bitmap[code / 8] |= static_cast<std::uint8_t>((mask >> pin & 1) << code % 8);
    }
}

/// @return whether that changed the word
bool SetBit(std::uint32_t& word, unsigned bit, bool value) {
    const std::uint32_t before = word;
    word = (word & ~(1u << bit)) | std::uint32_t{value} << bit;
    return word != before;
}

bool HasBit(std::uint32_t word, unsigned bit) {
    return bit < PIN_COUNT && (word >> bit & 1) != 0;
}

}  // namespace

std::optional<unsigned> GpioModel::SetLevel(unsigned pin, bool level) {
    if (!HasBit(m_pins.offeredInputs, pin)) {
        throw std::invalid_argument("no input pin " + std::to_string(pin));
    }
    return SetBit(m_levels, pin, level) ? std::optional(LEVEL_CODE + pin) : std::nullopt;
}

bool GpioModel::Write(unsigned code, std::int32_t value) {
    // Unsigned: a code below the first of a kind becomes a pin that there is not.
    if (HasBit(m_pins.offeredOutputs, code - LEVEL_CODE)) {
        return SetBit(m_outputs, code - LEVEL_CODE, value != 0);
    }
    if (HasBit(m_pins.switchable, code - DIRECTION_CODE)) {
        return SetBit(m_directions, code - DIRECTION_CODE, value != 0);
    }
    if (HasBit(m_pins.switchable, code - PARAMETER_CODE)) {
        m_parameters[code - PARAMETER_CODE] = value;
    }
    return false;
}

CodeBitmap GpioModel::OfferedKeys() const {
    CodeBitmap bitmap{};
    SetBits(bitmap, LEVEL_CODE, m_pins.offeredInputs);
    return bitmap;
}

CodeBitmap GpioModel::OfferedLeds() const {
    CodeBitmap bitmap{};
    SetBits(bitmap, LEVEL_CODE, m_pins.offeredOutputs);
    SetBits(bitmap, DIRECTION_CODE, m_pins.switchable);
    return bitmap;
}

CodeBitmap GpioModel::Keys() const {
    CodeBitmap bitmap{};
    SetBits(bitmap, LEVEL_CODE, m_levels);
    return bitmap;
}

CodeBitmap GpioModel::Leds() const {
    CodeBitmap bitmap{};
    SetBits(bitmap, LEVEL_CODE, m_outputs);
    SetBits(bitmap, DIRECTION_CODE, m_directions);
    return bitmap;
}

std::string GpioModel::Describe() const {
    std::string parameters;
    for (const auto& [pin, value] : m_parameters) {
        parameters += (parameters.empty() ? "" : ",") + std::to_string(pin) + ":" + std::to_string(value);
    }
    return "levels=" + FormatWord(m_levels) + " outputs=" + FormatWord(m_outputs) +
           " directions=" + FormatWord(m_directions) + " parameters=" + parameters;
}

}  // namespace VirtualPlayer
