// The signals that end a run in order.

#include "apps/padtune/termination_signals.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace {

/// Ends as main does after a run in which the signals came.
[[noreturn]] void EndAfter(std::initializer_list<int> numbers) {
    {
        TerminationSignals signals;
        for (const int number : numbers) {
            raise(number);
            std::fputs(signals.Take() ? "taken, " : "not taken, ", stderr);
        }
        std::fputs("in order", stderr);
    }
    std::exit(EXIT_SUCCESS);
}

TEST(TerminationSignalsDeathTest, TheFirstEndsTheProcessInOrderAndTheNextAtOnce) {
    for (const int number : TerminationSignals::NUMBERS) {
        EXPECT_EXIT(EndAfter({number}), testing::KilledBySignal(number), "^taken, in order$");
        EXPECT_EXIT(EndAfter({SIGINT, number}), testing::KilledBySignal(number), "^taken, $");
    }
}

TEST(TerminationSignalsDeathTest, AnIgnoredOneStaysIgnored) {
    EXPECT_EXIT((signal(SIGHUP, SIG_IGN), EndAfter({SIGHUP, SIGHUP})), testing::ExitedWithCode(EXIT_SUCCESS),
                "^not taken, not taken, in order$");
    EXPECT_EXIT((signal(SIGHUP, SIG_IGN), EndAfter({SIGHUP, SIGTERM})), testing::KilledBySignal(SIGTERM),
                "^not taken, taken, in order$");
}

}  // namespace
