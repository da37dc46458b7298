#pragma once

// The command codes of the touch board. A command is one 32-bit word: the code in the low byte, then up to
// three arguments. The configuration codes are the board's own parameter identifiers: the setup report names
// its parameters by the same codes.

#include <cstdint>

enum BoardCommand : std::uint32_t {
    COMMAND_LED_BITS = 0xA0,
    COMMAND_FINGER_TH = 0xA5,
    COMMAND_NOISE_TH = 0xA6,
    COMMAND_NEGNOISE_TH = 0xA7,
    COMMAND_BASELINE_TH = 0xA8,
    COMMAND_HYSTERESIS = 0xA9,
    COMMAND_DEBOUNCE = 0xAA,
    COMMAND_LOWBASELINE = 0xAB,
    COMMAND_RAW_HEADER = 0xAD,  ///< never sent: marks the page's row of the raw header
    COMMAND_RESET = 0xC0,
    COMMAND_REQUEST_SETUP = 0xC1,
    COMMAND_DIAGNOSE_BUTTON = 0xC2,
};

/// Builds the word that the board executes. Nothing is masked: a value above 255 spills into the third
/// argument's byte and is sent so.
constexpr std::uint32_t MakeCommandWord(std::uint32_t command, std::uint32_t first, std::uint32_t second,
                                        std::uint32_t third = 0) {
    return command | first << 8 | second << 16 | third << 24;
}
