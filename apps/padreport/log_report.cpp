#include "apps/padreport/log_report.h"

#include <cstring>
#include <utility>

#include "apps/padreport/log_input.h"
#include "lib/platform/errno_exception.h"

namespace padreport {

LogReport MakeLogReport(std::string name, std::string readTrouble, const LogReader& reader,
                        const LogStatistics& statistics, unsigned signal) {
    LogReport report;
    report.signal = signal;
    report.figures = MakeLogFigures(std::move(name), std::move(readTrouble), reader, statistics);
    for (const ButtonFigures& figures : report.figures.buttons) {
        const ButtonStatistics& button = *statistics.GetButtons().at(figures.button);
        report.judgements.push_back(Judge(button.GetCounts(Side::REST, signal),
                                          button.GetCounts(Side::TOUCHED, signal), figures.threshold));
    }
    report.remarks = MakeRemarks(report.figures.buttons, signal);
    return report;
}

LogReport ReadLogReport(const std::string& path, unsigned signal, ValueHistory* history) {
    LogStatistics statistics(history);
    LogReader reader(statistics);
    std::string trouble;
    try {
        trouble = ReadLog(path, reader);
    } catch (const ErrnoException& failure) {
        trouble = std::strerror(failure.GetErrno());
    }
    statistics.Finish();
    const std::string name = path == STANDARD_INPUT ? "standard input" : path;
    return MakeLogReport(name, trouble, reader, statistics, signal);
}

}  // namespace padreport
