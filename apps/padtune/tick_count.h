#pragma once

// The calibrator's clock.

#include <cstdint>

/// Reads the monotonic clock. Any thread.
/// @return nanoseconds; 0 (after a line on standard error) when the clock's resolution cannot be used
std::uint64_t getTickCount();
