#pragma once

// What the time stamps of a log mean together.
//
// A run is one run of padtune: its stamps begin at 0.000 and never fall. One log can hold several runs, one
// after the other: a new one begins where a stamp is lower than the one before, and where INFO lines come
// again.
//
// Lines stamped 0.000 at the beginning of a run are printed before the live page starts. They are untimed:
// they came over seconds, nobody knows when.
//
// A stretch is a part of the log over which time goes on: times in different stretches are not compared. The
// untimed lines of a run are a stretch, the others are another, which is divided where a stamp is more than
// a minute later than the one before: whether the clock jumped or the board was away, what lies between was
// not seen.
//
// Not for concurrent use.

#include <cstdint>

#include "apps/padreport/log_reader.h"

namespace padreport {

/// A stamp that is more than this later than the one before is a jump.
constexpr std::int64_t JUMP_MILLISECONDS = 60'000;

/// How often something happened, and in which line first.
struct Occurrences {
    std::uint64_t count = 0;      ///< how often
    std::uint64_t firstLine = 0;  ///< from 1; 0 when it did not happen
};

/// The runs and the stretches of one log.
class Timeline {
public:
    /// What a sample means for the time.
    struct Step {
        bool beginsStretch = false;  ///< whether no sample before it belongs to its stretch
        bool isTimed = false;        ///< whether its stamp tells its time
    };

    /// The next sample of the log, of whatever button.
    Step Advance(const Sample& sample);

    /// INFO lines, which padtune prints once, have come again: the next sample belongs to a new run.
    void BeginRun() { m_isRunBegun = false; }

    std::uint64_t GetRuns() const { return m_runs; }  ///< runs so far

    /// Stamps that were lower than the one before.
    const Occurrences& GetFallingStamps() const { return m_fallingStamps; }

    /// Stamps that were more than JUMP_MILLISECONDS later than the one before.
    const Occurrences& GetJumps() const { return m_jumps; }

    /// The length of all timed stretches together.
    std::int64_t GetTimedMilliseconds() const { return m_timedMilliseconds; }

    /// The stamp of the last sample.
    std::int64_t GetLastMilliseconds() const { return m_last; }

private:
    std::uint64_t m_runs = 0;
    bool m_isRunBegun = false;
    bool m_isTimed = false;
    std::int64_t m_last = 0;
    std::int64_t m_timedMilliseconds = 0;
    Occurrences m_fallingStamps;
    Occurrences m_jumps;
};

}  // namespace padreport
