#pragma once

// The numbers of the touch board's protocol, which docs/touch-board.md tells.

#include <cstdint>

namespace VirtualPlayer {

/// The low byte of a command word.
enum Command : std::uint32_t {
    LED_BITS = 0xA0,
    FINGER_THRESHOLD = 0xA5,
    NOISE_THRESHOLD = 0xA6,
    NEGATIVE_NOISE_THRESHOLD = 0xA7,
    BASELINE_THRESHOLD = 0xA8,
    HYSTERESIS = 0xA9,
    DEBOUNCE = 0xAA,
    LOW_BASELINE = 0xAB,
    IDENTIFY = 0xAC,
    RESET = 0xC0,
    REQUEST_SETUP = 0xC1,
    DIAGNOSE_BUTTON = 0xC2,
};

/// What tells a setup report from a diagnostics report: its first word, and twice the same command in the
/// low half of its second.
constexpr std::uint32_t SETUP_MARKER = 0xFFFF;
constexpr std::uint32_t SETUP_SECOND_MARKER = DIAGNOSE_BUTTON | DIAGNOSE_BUTTON << 8;

/// The application of a touch board: usage page and usage.
constexpr std::uint32_t TOUCH_BOARD_APPLICATION = 0xFF770001;

/// The usage pages of its reports.
constexpr std::uint16_t GPIO_PAGE = 0xFF00;
constexpr std::uint16_t DIAGNOSTICS_PAGE = 0xFF01;
constexpr std::uint16_t IDENTITY_PAGE = 0xFF02;
constexpr std::uint16_t LED_SETUP_PAGE = 0xFF40;
constexpr std::uint16_t LED_PAGE = 0xFF41;

}  // namespace VirtualPlayer
