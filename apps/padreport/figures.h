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

/// A figure with its standard error.
struct Uncertain {
    double value = 0;                   ///< the figure, in its own unit
    std::optional<double> uncertainty;  ///< in the same unit; nothing where there is none
};

/// One value of a button, at rest or touched.
struct SideFigures {
    std::uint64_t count = 0;  ///< settled samples
    std::int32_t min = 0;     ///< counts of the board's
    std::int32_t max = 0;     ///< counts
    Uncertain median;         ///< counts
    Uncertain spread;         ///< counts
};

/// The figures of one of the values of a button.
struct ValueFigures {
    std::optional<SideFigures> rest;       ///< nothing without samples at rest
    std::optional<SideFigures> touched;    ///< nothing without touched samples
    std::optional<Uncertain> rise;         ///< counts; nothing where a side has no samples
    std::optional<Uncertain> separation;   ///< units; nothing where a side has no samples
    std::optional<double> driftPerMinute;  ///< at rest; see drift.h
};

/// Lengths of several things of a kind.
struct Lengths {
    std::int64_t shortest = 0;  ///< milliseconds
    std::int64_t median = 0;    ///< milliseconds
    std::int64_t longest = 0;   ///< milliseconds
};

/// The figures of one button.
struct ButtonFigures {
    unsigned button = 0;                           ///< its number
    std::uint64_t samples = 0;                     ///< timed and untimed ones
    std::uint64_t untimedSamples = 0;              ///< of these, those whose stamps do not tell their time
    std::uint64_t edgeSamples = 0;                 ///< set aside, as not settled
    std::optional<double> rate;                    ///< lines a second; nothing without intervals
    std::uint64_t gaps = 0;                        ///< how many intervals are gaps
    std::int64_t longestGap = 0;                   ///< milliseconds; 0 without gaps
    std::int64_t gapLimit = 0;                     ///< a longer interval is a gap
    std::int64_t timedMilliseconds = 0;            ///< all intervals together
    std::uint64_t touches = 0;                     ///< how many were seen, in timed lines
    std::optional<Lengths> touchLengths;           ///< of the touches that were seen from beginning to end
    std::optional<std::int32_t> threshold;         ///< as the board's INFO lines say
    bool isTouchedNow = false;                     ///< in its last line
    std::array<ValueFigures, VALUE_COUNT> values;  ///< value 1 to 4
};

/// The figures of one log.
struct LogFigures {
    std::string name;                    ///< of the log, as the report shows it
    std::string readTrouble;             ///< what ended the reading early; empty when nothing did
    LineCounts lines;                    ///< how many there are of each kind
    std::uint64_t runs = 0;              ///< of padtune
    Occurrences fallingStamps;           ///< stamps lower than the one before
    Occurrences jumps;                   ///< stamps too much later than the one before
    std::int64_t timedMilliseconds = 0;  ///< the length of all timed stretches together
    std::int64_t lastMilliseconds = 0;   ///< the last stamp
    BoardInfo info;                      ///< of the last run that has INFO lines
    bool hasChangedInfo = false;         ///< whether another run had other INFO lines
    std::vector<ButtonFigures> buttons;  ///< by number

    /// How many samples all buttons have together.
    std::uint64_t GetSampleCount() const { return CountOf(lines, LineKind::SAMPLE).count; }
};

/// The figures of one button. Any state of the statistics will do, also while the log is still being read.
ButtonFigures MakeButtonFigures(unsigned button, const ButtonStatistics& statistics);

/// The figures of a whole log.
/// @param name of the log
/// @param readTrouble what ended the reading early
/// @param reader has read the log
/// @param statistics of the same log
LogFigures MakeLogFigures(std::string name, std::string readTrouble, const LogReader& reader,
                          const LogStatistics& statistics);

/// The spread of values, as above.
double GetSpread(const Quantiles& quantiles);

/// What separations are measured in.
inline double GetUnit(double spread) {
    return spread > 1 ? spread : 1;
}

}  // namespace padreport
