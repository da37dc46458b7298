#pragma once

// Points on the monotonic clock, which setting the wall clock does not move.

#include <chrono>
#include <compare>
#include <cstdint>
#include <ctime>

#include "lib/platform/assertion.h"

namespace strata {

/// Nanoseconds a second.
inline constexpr std::int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;

/// A point on the monotonic clock.
struct monotonic_time {
    time_t seconds = 0;    ///< since the clock's beginning
    long nanoseconds = 0;  ///< 0 to 999,999,999

    /// Moves the point on.
    /// @param delay  not negative
    monotonic_time& operator+=(std::chrono::microseconds delay) {
        constexpr long MICROSECONDS_PER_SECOND = 1'000'000;
        seconds += static_cast<time_t>(delay.count() / MICROSECONDS_PER_SECOND);
        nanoseconds += static_cast<long>(delay.count() % MICROSECONDS_PER_SECOND) * 1000;
        while (nanoseconds >= NANOSECONDS_PER_SECOND) {
            nanoseconds -= NANOSECONDS_PER_SECOND;
            ++seconds;
        }
        return *this;
    }

    /// The point that is later by a delay, which is not negative.
    friend monotonic_time operator+(monotonic_time time, std::chrono::microseconds delay) {
        return time += delay;
    }
    /// The time from an earlier point to a later one.
    friend std::chrono::nanoseconds operator-(const monotonic_time& later, const monotonic_time& earlier) {
        return std::chrono::seconds(later.seconds - earlier.seconds) +
               std::chrono::nanoseconds(later.nanoseconds - earlier.nanoseconds);
    }
    /// Earlier points are less.
    friend auto operator<=>(const monotonic_time&, const monotonic_time&) = default;

    /// The point as the system calls take it, on CLOCK_MONOTONIC.
    timespec ToTimespec() const { return {seconds, nanoseconds}; }

    /// Nanoseconds since the clock's beginning.
    std::int64_t ToNanoseconds() const { return seconds * NANOSECONDS_PER_SECOND + nanoseconds; }
};

/// Reads the monotonic clock. Any thread. A clock that cannot be read ends the process.
inline monotonic_time get_monotonic_time() {
    timespec ts{};
    PLATFORM_ASSERT_AT("lib/platform/monotonic_time.h", 245,
                       "strata::monotonic_time strata::get_monotonic_time()",
                       !clock_gettime(CLOCK_MONOTONIC, &ts));
    return {ts.tv_sec, ts.tv_nsec};
}

/// Reads the monotonic clock as nanoseconds, in which deadlines are counted. As get_monotonic_time.
inline std::int64_t get_monotonic_nanoseconds() {
    return get_monotonic_time().ToNanoseconds();
}

}  // namespace strata
