#include "apps/padtune/page_layout.h"

#include "lib/platform/monotonic_time.h"

namespace {

/// A keypad of three columns and three rows, with a fourth column of two.
std::vector<ButtonBox> LayOutGrid(const BoxArea& area) {
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
std::vector<ButtonBox> LayOutCross(const BoxArea& area) {
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

}  // namespace

StripLayout LayOutBottomStrip(std::int32_t screenWidth, std::int32_t screenHeight, std::int32_t counterWidth,
                              std::int32_t counterHeight) {
    constexpr std::int32_t COUNTER_MARGIN = 5;
    StripLayout strip;
    strip.top = screenHeight - 2 * counterHeight;
    strip.height = 2 * counterHeight;
    strip.counterX = screenWidth - counterWidth;
    strip.counterTextX = strip.counterX - COUNTER_MARGIN;
    return strip;
}

PageRectangle GetProgressBackground(const StripLayout& strip) {
    constexpr std::int32_t GAP_BEFORE_COUNTER = 15;
    return {0, strip.top, strip.counterX - GAP_BEFORE_COUNTER, strip.height};
}

PageRectangle GetProgressOutline(const StripLayout& strip) {
    constexpr std::int32_t LEFT = 20;
    constexpr std::int32_t GAP_BEFORE_COUNTER = 25;
    return {LEFT, strip.top + strip.height / 4, strip.counterX - LEFT - GAP_BEFORE_COUNTER, strip.height / 2};
}

PageRectangle GetProgressBar(const StripLayout& strip, std::int64_t elapsedNanoseconds,
                             std::int32_t timeoutSeconds) {
    constexpr std::int32_t INSET = 2;
    PageRectangle bar = GetProgressOutline(strip);
    bar.x += INSET;
    bar.y += INSET;
    bar.height -= 2 * INSET;

    // In a run of some weeks the product can outgrow 64 bits.
    const __int128 product = static_cast<__int128>(bar.width - 2 * INSET) * elapsedNanoseconds;
    const std::int64_t timeoutNanoseconds = timeoutSeconds * strata::NANOSECONDS_PER_SECOND;
    bar.width = timeoutNanoseconds > 0 ? static_cast<std::int32_t>(product / timeoutNanoseconds) : 0;
    return bar;
}

std::vector<ButtonBox> LayOutButtonBoxes(Keypad keypad, std::int32_t buttonCount, const BoxArea& area) {
    constexpr std::int32_t GRID_BUTTONS = 11;
    const bool isGrid = keypad == Keypad::GRID && buttonCount == GRID_BUTTONS;
    return isGrid ? LayOutGrid(area) : LayOutCross(area);
}
