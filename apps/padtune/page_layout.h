#pragma once

// The geometry of the page: where the bottom strip, the progress bar and the button boxes lie, from the
// screen's size and the measured extents of texts. Nothing here draws. All measures are pixels, and all
// divisions drop the remainder.

#include <cstdint>
#include <vector>

#include "apps/padtune/board_properties.h"

struct PageRectangle {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
};

/// Where one button's name and live values are drawn.
struct ButtonBox {
    std::int32_t button = 0;  ///< 1-based
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
};

/// The strip at the bottom of the page: the progress bar and, to the right of it, the counter of seconds.
struct StripLayout {
    std::int32_t top = 0;
    std::int32_t height = 0;
    std::int32_t counterX = 0;  ///< where the widest count would start
    std::int32_t counterTextX = 0;
};

/// What the boxes have to share, and what they have to keep clear of.
struct BoxArea {
    std::int32_t screenWidth = 0;
    std::int32_t top = 0;
    std::int32_t bottom = 0;
    std::int32_t labelWidth = 0;  ///< of the widest label of the parameter table
    std::int32_t valueWidth = 0;  ///< of its widest value
};

/// Places the strip at the bottom of the page.
/// @param screenWidth, screenHeight the page's size
/// @param counterWidth, counterHeight logical extents of the widest count
inline StripLayout LayOutBottomStrip(std::int32_t screenWidth, std::int32_t screenHeight,
                                     std::int32_t counterWidth, std::int32_t counterHeight) {
    constexpr std::int32_t COUNTER_MARGIN = 5;
    StripLayout strip;
    strip.top = screenHeight - 2 * counterHeight;
    strip.height = 2 * counterHeight;
    strip.counterX = screenWidth - counterWidth;
    strip.counterTextX = strip.counterX - COUNTER_MARGIN;
    return strip;
}

/// What is blanked before the bar is drawn again.
inline PageRectangle GetProgressBackground(const StripLayout& strip) {
    constexpr std::int32_t GAP_BEFORE_COUNTER = 15;
    return {0, strip.top, strip.counterX - GAP_BEFORE_COUNTER, strip.height};
}

/// The frame around the bar.
inline PageRectangle GetProgressOutline(const StripLayout& strip) {
    constexpr std::int32_t LEFT = 20;
    constexpr std::int32_t GAP_BEFORE_COUNTER = 25;
    return {LEFT, strip.top + strip.height / 4, strip.counterX - LEFT - GAP_BEFORE_COUNTER, strip.height / 2};
}

/// The filled part of the bar, inside the outline.
/// @param elapsedNanoseconds since the start of the timed loop
/// @param timeoutSeconds length of the timed loop; the bar of an empty loop is empty
inline PageRectangle GetProgressBar(const StripLayout& strip, std::int64_t elapsedNanoseconds,
                                    std::int32_t timeoutSeconds) {
    constexpr std::int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
    constexpr std::int32_t INSET = 2;
    PageRectangle bar = GetProgressOutline(strip);
    bar.x += INSET;
    bar.y += INSET;
    bar.height -= 2 * INSET;

    // In a run of some weeks the product can outgrow 64 bits.
    const __int128 product = static_cast<__int128>(bar.width - 2 * INSET) * elapsedNanoseconds;
    const std::int64_t timeoutNanoseconds = timeoutSeconds * NANOSECONDS_PER_SECOND;
    bar.width = timeoutNanoseconds > 0 ? static_cast<std::int32_t>(product / timeoutNanoseconds) : 0;
    return bar;
}

/// A keypad of three columns and three rows, with a fourth column of two.
inline std::vector<ButtonBox> LayOutGrid(const BoxArea& area) {
    constexpr std::int32_t GAP_AFTER_TABLE = 20;
    const std::int32_t available = area.bottom - area.top;
    const std::int32_t left = area.labelWidth + area.valueWidth + GAP_AFTER_TABLE;
    const std::int32_t width = (area.screenWidth - left) / 4;
    const std::int32_t height = available / 3;
    std::vector<ButtonBox> boxes;
    for (std::int32_t button = 1; button <= 9; ++button) {
        const std::int32_t column = (button - 1) % 3;
        const std::int32_t row = (button - 1) / 3;
        boxes.push_back({button, left + width * column, area.top + height * row, width, height});
    }
    const std::int32_t lastColumn = left + 3 * width;
    const std::int32_t lastColumnTop = area.top + available / 6;
    boxes.push_back({10, lastColumn, lastColumnTop, width, height});
    boxes.push_back({11, lastColumn, lastColumnTop + height, width, height});
    return boxes;
}

/// Four buttons in a cross: right, up, down, left.
inline std::vector<ButtonBox> LayOutCross(const BoxArea& area) {
    const std::int32_t available = area.bottom - area.top;
    const std::int32_t left = area.labelWidth + 2 * area.valueWidth;
    const std::int32_t width = (area.screenWidth - left) / 3;
    const std::int32_t height = available / 2;
    const std::int32_t middle = area.top + available / 4;
    return {
        {1, left + 2 * width, middle, width, height},
        {2, left + width, area.top, width, height},
        {3, left + width, area.top + available / 2, width, height},
        {4, left, middle, width, height},
    };
}

/// The boxes of a board, button n at position n - 1. A grid has boxes only for a board that announced its
/// count of buttons; a KP120, whose buttons form a cross, announces that count too.
inline std::vector<ButtonBox> LayOutButtonBoxes(Keypad keypad, std::int32_t buttonCount,
                                                const BoxArea& area) {
    constexpr std::int32_t GRID_BUTTONS = 11;
    const bool isGrid = keypad == Keypad::GRID && buttonCount == GRID_BUTTONS;
    return isGrid ? LayOutGrid(area) : LayOutCross(area);
}
