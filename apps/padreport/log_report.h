#pragma once

// A log, read and judged: what every kind of output shows.

#include <string>
#include <vector>

#include "apps/padreport/figures.h"
#include "apps/padreport/remarks.h"
#include "apps/padreport/verdict.h"

namespace padreport {

/// One log, read and judged.
struct LogReport {
    LogFigures figures;                 ///< what is measured
    unsigned signal = 0;                ///< index of the value, from 0
    std::vector<Judgement> judgements;  ///< one for each button of the figures, in their order
    std::vector<Remark> remarks;        ///< in the order of the buttons

    /// Whether there is anything to judge.
    bool HasSamples() const { return figures.GetSampleCount() > 0; }
};

/// Judges what has been read so far.
/// @param name of the log
/// @param readTrouble what ended the reading early; empty when nothing did
/// @param reader has read the log, or is reading it
/// @param statistics of the same log
/// @param signal index of the value, from 0
LogReport MakeLogReport(std::string name, std::string readTrouble, const LogReader& reader,
                        const LogStatistics& statistics, unsigned signal);

/// Reads a whole log, and judges it. One that cannot be opened gives a report without samples.
/// @param path of a file, or STANDARD_INPUT
/// @param signal index of the value, from 0
/// @param history receives what the values did over time; nullptr where that is not wanted
LogReport ReadLogReport(const std::string& path, unsigned signal, ValueHistory* history = nullptr);

}  // namespace padreport
