#pragma once

// The figures of a log, and what each of them means.
//
// Values and spreads are counts of the board's, times are milliseconds. Of the values only settled samples
// count (settled_samples.h): at rest are those without a star, touched are those with one.
//
// - Minimum, median, maximum: exact. The median is the smallest value that at least half of the samples do
//   not exceed.
// - Spread: the interquartile range divided by 1.349. For noise with a normal distribution this is the
//   standard deviation; a quarter of the samples at either end does not change it. Quartiles as the median.
// - Unit: the spread at rest, but at least one count, which is as fine as the values are.
// - Rise: median touched less median at rest.
// - Separation: the rise in units.
// - Uncertainty of a figure: its standard error. The figure is calculated for each of eight parts of the log
//   (the seconds, dealt out in turn); their standard deviation is divided by the square root of their
//   number. There is none where fewer than four parts have at least five samples on the sides that the
//   figure needs.
// - Rate: lines a second, from the first to the last timed line of each stretch, gaps included.
// - Gap: more than three median intervals, and more than 20 ms, from one line of a button to the next (less
//   is scheduling).

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/padreport/log_reader.h"
#include "apps/padreport/log_statistics.h"
#include "apps/padreport/timeline.h"

namespace padreport {

struct Uncertain {
    double value = 0;
    std::optional<double> uncertainty;
};

/// One value of a button, at rest or touched.
struct SideFigures {
    std::uint64_t count = 0;
    std::int32_t min = 0;
    std::int32_t max = 0;
    Uncertain median;
    Uncertain spread;
};

struct ValueFigures {
    std::optional<SideFigures> rest;
    std::optional<SideFigures> touched;
    std::optional<Uncertain> rise;
    std::optional<Uncertain> separation;
    std::optional<double> driftPerMinute;  ///< at rest; see drift.h
};

/// Lengths of several things of a kind.
struct Lengths {
    std::int64_t shortest = 0;
    std::int64_t median = 0;
    std::int64_t longest = 0;
};

struct ButtonFigures {
    unsigned button = 0;
    std::uint64_t samples = 0;
    std::uint64_t untimedSamples = 0;
    std::uint64_t edgeSamples = 0;  ///< set aside, as not settled
    std::optional<double> rate;
    std::uint64_t gaps = 0;
    std::int64_t longestGap = 0;
    std::int64_t gapLimit = 0;           ///< a longer interval is a gap
    std::int64_t timedMilliseconds = 0;  ///< all intervals together
    std::uint64_t touches = 0;
    std::optional<Lengths> touchLengths;    ///< of the touches that were seen from beginning to end
    std::optional<std::int32_t> threshold;  ///< as the board's INFO lines say
    bool isTouchedNow = false;              ///< in its last line
    std::array<ValueFigures, VALUE_COUNT> values;
};

struct LogFigures {
    std::string name;
    std::string readTrouble;  ///< what ended the reading early; empty when nothing did
    LineCounts lines;
    std::uint64_t runs = 0;
    Occurrences fallingStamps;
    Occurrences jumps;
    std::int64_t timedMilliseconds = 0;
    std::int64_t lastMilliseconds = 0;
    BoardInfo info;
    bool hasChangedInfo = false;
    std::vector<ButtonFigures> buttons;  ///< by number

    std::uint64_t GetSampleCount() const { return CountOf(lines, LineKind::SAMPLE).count; }
};

/// The figures of one button. Any state of the statistics will do, also while the log is still being read.
ButtonFigures MakeButtonFigures(unsigned button, const ButtonStatistics& statistics);

/// The figures of a whole log.
/// @param name of the log
/// @param readTrouble what ended the reading early
LogFigures MakeLogFigures(std::string name, std::string readTrouble, const LogReader& reader,
                          const LogStatistics& statistics);

/// The spread of values, as above.
double GetSpread(const Quantiles& quantiles);

/// What separations are measured in.
inline double GetUnit(double spread) {
    return spread > 1 ? spread : 1;
}

}  // namespace padreport
