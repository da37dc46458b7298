#pragma once

// What the poll thread's handlers hand to the frame loop: the newest values of the board, and the start of
// the run, which goes the other way.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

/// One decoded per-button sample of a diagnostics report.
struct ButtonSample {
    std::uint32_t button = 0;  ///< 1-based
    std::int32_t value1 = 0;   ///< a count of the board's, as the next two; printed first
    std::int32_t value2 = 0;   ///< printed second
    std::int32_t value3 = 0;   ///< printed last
    std::int32_t value4 = 0;   ///< 0 to 255; printed third
    std::uint8_t touched = 0;  ///< 1 while the button is touched
};

/// The newest values of the board.
struct LiveValues {
    std::vector<ButtonSample> samples;      ///< of the diagnosed buttons
    std::uint32_t touchBits = 0;            ///< bit n: button n+1 is touched
    std::uint32_t gpioLevels = 0xFFFFFFFF;  ///< bit n: level of GPIO pin n; all ones until the first event
};

/// Written by the poll thread, read by the main thread; runStart the other way round.
struct LiveState {
    /// Guards the values. No other mutex is taken while it is held.
    std::mutex mutex;
    LiveValues values;  ///< guarded by the mutex

    /// Start of the timed loop in ticks of getTickCount, 0 before it.
    std::atomic<std::uint64_t> runStart{0};
};

/// Keeps the levels of the board's GPIO pins for the frame loop.
class GpioLevels {
public:
    /// @param live where the levels go; must outlive this object
    explicit GpioLevels(LiveState& live) : m_live(live) {}

    /// The GPIO port's value callback. Runs on the poll thread.
    /// @param pin pins above 31 have no level here
    /// @param value the level; every value but 0 is high
    /// @param width not used
    /// @throws std::system_error when the mutex of the live state cannot be locked
    void OnValue(unsigned pin, unsigned value, unsigned width);

private:
    LiveState& m_live;
    std::uint32_t m_levels = 0;
};
