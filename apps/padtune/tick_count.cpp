#include "apps/padtune/tick_count.h"

#include <cstdio>
#include <ctime>

#include "lib/platform/monotonic_time.h"

std::uint64_t getTickCount() {
    timespec resolution{};
    if (clock_getres(CLOCK_MONOTONIC, &resolution) != 0) {
        std::fprintf(stderr, "clock_getres FAILED<br>\n");
        return 0;
    }
    if (resolution.tv_sec != 0) {
        std::fprintf(stderr, "getTickCount: Can't handle second resolutions<br>\n");
        return 0;
    }

    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        std::fprintf(stderr, "clock_gettime FAILED<br>\n");
    }
    // The nanoseconds are multiplied by the clock's resolution, deliberately; on a clock of 1 ns that changes
    // nothing.
    return static_cast<std::uint64_t>(now.tv_sec) * strata::NANOSECONDS_PER_SECOND +
           static_cast<std::uint64_t>(now.tv_nsec) * static_cast<std::uint64_t>(resolution.tv_nsec);
}
