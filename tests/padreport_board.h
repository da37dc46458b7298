#pragma once

// The log of a board that the tests of padreport make up: fingers that come and go, noise, thresholds.

#include <algorithm>
#include <map>
#include <random>
#include <string>

#include "tests/padreport_runner.h"

namespace padreport {

struct BoardModel {
    std::map<unsigned, int> thresholds{{1, 60}, {2, 60}, {3, 60}, {4, 60}};
    std::map<unsigned, int> noise{{1, 3}, {2, 3}, {3, 3}, {4, 3}};  ///< at most, either way
    std::map<unsigned, int> lift{{1, 120}, {2, 120}, {3, 120}, {4, 120}};
    unsigned seed = 1;

    /// Two minutes at 25 reports a second; each button is touched for a second out of five.
    std::string MakeLog() const {
        std::mt19937 random(seed);
        std::string log;
        for (const auto& [button, threshold] : thresholds) {
            log += strprintf("INFO: Button Threshold %02u = %d\n", button, threshold);
        }
        std::map<unsigned, bool> touched;
        for (int ms = 0; ms < 120'000; ms += 40) {
            for (const auto& [button, threshold] : thresholds) {
                const int range = 2 * noise.at(button) + 1;
                // The sum of three has something of a bell.
                const int deviation =
                    static_cast<int>(random() % range + random() % range + random() % range) / 3 -
                    noise.at(button);
                const bool isFinger = (ms / 1000 + button) % 5 == 0;
                const int signal = std::max(0, (isFinger ? lift.at(button) : 8) + deviation);
                touched[button] = signal > threshold - (touched[button] ? 4 : 0);
                log += SampleLine(ms, button, {1200 + signal, 1200, 4, signal}, touched[button]);
            }
        }
        return log;
    }
};

}  // namespace padreport
