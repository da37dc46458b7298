#pragma once

// The geometry of the page: where the bottom strip, the progress bar and the button boxes lie, from the
// screen's size and the measured extents of texts. Nothing here draws. All measures are pixels, and all
// divisions drop the remainder.

#include <cstdint>
#include <vector>

#include "apps/padtune/board_properties.h"

/// An area of the page.
struct PageRectangle {
    std::int32_t x = 0;       ///< pixels from the left edge of the screen
    std::int32_t y = 0;       ///< pixels from its top edge
    std::int32_t width = 0;   ///< pixels
    std::int32_t height = 0;  ///< pixels
};

/// Where one button's name and live values are drawn.
struct ButtonBox {
    std::int32_t button = 0;  ///< 1-based
    std::int32_t x = 0;       ///< pixels from the left edge of the screen
    std::int32_t y = 0;       ///< pixels from its top edge
    std::int32_t width = 0;   ///< pixels
    std::int32_t height = 0;  ///< pixels
};

/// The strip at the bottom of the page: the progress bar and, to the right of it, the counter of seconds.
struct StripLayout {
    std::int32_t top = 0;           ///< pixels from the top edge of the screen
    std::int32_t height = 0;        ///< pixels
    std::int32_t counterX = 0;      ///< where the widest count would start
    std::int32_t counterTextX = 0;  ///< where the count is drawn; the strip is cleared from here on
};

/// What the boxes have to share, and what they have to keep clear of.
struct BoxArea {
    std::int32_t screenWidth = 0;  ///< pixels
    std::int32_t top = 0;          ///< pixels from the top edge of the screen
    std::int32_t bottom = 0;       ///< the same; the boxes end above it
    std::int32_t labelWidth = 0;   ///< of the widest label of the parameter table
    std::int32_t valueWidth = 0;   ///< of its widest value
};

/// Places the strip at the bottom of the page.
/// @param screenWidth, screenHeight the page's size
/// @param counterWidth, counterHeight logical extents of the widest count
StripLayout LayOutBottomStrip(std::int32_t screenWidth, std::int32_t screenHeight, std::int32_t counterWidth,
                              std::int32_t counterHeight);

/// What is blanked before the bar is drawn again.
PageRectangle GetProgressBackground(const StripLayout& strip);

/// The frame around the bar.
PageRectangle GetProgressOutline(const StripLayout& strip);

/// The filled part of the bar, inside the outline.
/// @param strip where the bar lies
/// @param elapsedNanoseconds since the start of the timed loop
/// @param timeoutSeconds length of the timed loop; the bar of an empty loop is empty
PageRectangle GetProgressBar(const StripLayout& strip, std::int64_t elapsedNanoseconds,
                             std::int32_t timeoutSeconds);

/// The boxes of a board, button n at position n - 1.
/// @param keypad the keypad of the board's kind; a grid is laid out only when the board announced eleven
/// buttons
/// @param buttonCount as the board announced it, which is eleven for a board with a cross, too
/// @param area what the boxes have to share
std::vector<ButtonBox> LayOutButtonBoxes(Keypad keypad, std::int32_t buttonCount, const BoxArea& area);
