#pragma once

// The command codes of the touch board and the names of its parameters. A command is one 32-bit word: the
// code in the low byte, then up to three arguments. The configuration codes are the board's own parameter
// identifiers: the setup report names its parameters by the same codes.

#include <cstdint>

/// What a command word has in its low byte.
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

/// What a parameter of the setup report is called; null where it is not known by name.
struct ParameterNames {
    std::uint32_t code;      ///< as BoardCommand has it
    const char* reportName;  ///< in the lines that are printed for a setup
    const char* pageLabel;   ///< in the table of the page
};

/// The parameters that are known by name.
// clang-format off
inline constexpr ParameterNames PARAMETER_NAMES[] = {
    {COMMAND_FINGER_TH,   "FINGER_TH",   nullptr},
    {COMMAND_NOISE_TH,    "NOISE_TH",    "Noise T/H:"},
    {COMMAND_NEGNOISE_TH, "NEGNOISE_TH", "Neg Noise T/H:"},
    {COMMAND_BASELINE_TH, "BASELINE_TH", "Baseline:"},
    {COMMAND_HYSTERESIS,  "HYSTERESIS",  "Hysteresis:"},
    {COMMAND_DEBOUNCE,    "DEBOUNCE",    "Debounce:"},
    {COMMAND_LOWBASELINE, "LOWBASELINE", "Low Baseline:"},
    {COMMAND_RAW_HEADER,  nullptr,       "Raw Header:"},
};
// clang-format on

/// The names of a parameter; both null for a code that is not in the table.
constexpr ParameterNames FindParameterNames(std::uint32_t code) {
    for (const ParameterNames& names : PARAMETER_NAMES) {
        if (names.code == code) {
            return names;
        }
    }
    return {code, nullptr, nullptr};
}

/// Builds the word that the board executes. Nothing is masked: a value above 255 spills into the third
/// argument's byte and is sent so.
constexpr std::uint32_t MakeCommandWord(std::uint32_t command, std::uint32_t first, std::uint32_t second,
                                        std::uint32_t third = 0) {
    return command | first << 8 | second << 16 | third << 24;
}
