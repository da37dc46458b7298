// padreport turns the diagnostic lines of padtune into a decision: which buttons are safe, which thresholds
// part touch from rest, what a change did, which of many players is next. Start-up, outputs, exit statuses.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "apps/padreport/comparison_output.h"
#include "apps/padreport/follow.h"
#include "apps/padreport/log_report.h"
#include "apps/padreport/page.h"
#include "apps/padreport/report_csv.h"
#include "apps/padreport/report_json.h"
#include "apps/padreport/report_text.h"
#include "apps/padreport/request.h"
#include "apps/padreport/summary.h"
#include "apps/padreport/terminal.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/standard_output.h"
#include "lib/platform/stop_signals.h"
#include "lib/platform/unique_fd.h"

namespace padreport {

namespace {

enum ExitStatus { STATUS_DONE = 0, STATUS_NO_SAMPLES = 1, STATUS_TROUBLE = 1, STATUS_USAGE = 2 };

void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    FlushStandardOutput();
}

/// Tells on standard error, where it stands apart from the report, which logs are worth nothing.
void Complain(const LogReport& report) {
    const LogFigures& figures = report.figures;
    if (!figures.readTrouble.empty()) {
        std::fprintf(stderr, "padreport: %s: %s\n", figures.name.c_str(), figures.readTrouble.c_str());
    } else if (!report.HasSamples()) {
        std::fprintf(stderr, "padreport: %s: no samples\n", figures.name.c_str());
    }
}

std::vector<LogReport> ReadReports(const Request& request) {
    std::vector<LogReport> reports;
    for (const std::string& file : request.files) {
        reports.push_back(ReadLogReport(file, request.signal));
        Complain(reports.back());
    }
    return reports;
}

void WriteFile(const std::string& path, const std::string& text) {
    constexpr mode_t MODE = 0666;  // less what the user's umask takes away
    strata::UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, MODE));
    if (!file.IsOpen()) {
        throw ErrnoException(errno, path);
    }
    try {
        write_all_throw(file.Get(), text.data(), text.size());
    } catch (const ErrnoException& failure) {
        throw ErrnoException(failure.GetErrno(), path);
    }
    if (close(file.Release()) != 0) {
        throw ErrnoException(errno, path);
    }
}

/// A log without samples gives no page: what stands in the file stays.
int WritePage(const Request& request) {
    ValueHistory history;
    const LogReport report = ReadLogReport(request.files[0], request.signal, &history);
    Complain(report);
    if (!report.HasSamples()) {
        return STATUS_NO_SAMPLES;
    }
    WriteFile(request.page, RenderPage(report, std::move(history)));
    return STATUS_DONE;
}

int PrintReports(const Request& request) {
    const std::vector<LogReport> reports = ReadReports(request);
    std::string text;
    if (request.format == Format::CSV) {
        text = FormatCsv(reports);
    } else if (request.format == Format::JSON) {
        Json logs = Json::array();
        for (const LogReport& report : reports) {
            logs.push_back(MakeReportJson(report));
        }
        text = FormatJson({{"logs", logs}});
    } else {
        const Terminal terminal = DetectTerminal();
        for (const LogReport& report : reports) {
            text += (text.empty() ? "" : "\n\n") + RenderReport(report, terminal);
        }
    }
    Print(text);
    const bool hasSamples = std::any_of(reports.begin(), reports.end(),
                                        [](const LogReport& report) { return report.HasSamples(); });
    return hasSamples ? STATUS_DONE : STATUS_NO_SAMPLES;
}

int PrintComparison(const Request& request) {
    const std::vector<LogReport> reports = ReadReports(request);
    const LogReport& before = reports[0];
    const LogReport& after = reports[1];
    if (!before.HasSamples() || !after.HasSamples()) {
        return STATUS_NO_SAMPLES;
    }
    Print(request.format == Format::JSON ? FormatJson(MakeComparisonJson(before, after))
                                         : RenderComparison(before, after, DetectTerminal()));
    return STATUS_DONE;
}

int PrintSummary(const Request& request) {
    std::vector<LogSummary> summaries;
    for (const std::string& file : request.files) {
        summaries.push_back(Summarize(ReadLogReport(file, request.signal)));
    }
    SortSummaries(summaries);
    Print(request.format == Format::JSON ? FormatJson(MakeSummariesJson(summaries, request.signal))
                                         : RenderSummaries(summaries, request.signal, DetectTerminal()));
    const bool hasSamples = std::any_of(summaries.begin(), summaries.end(),
                                        [](const LogSummary& summary) { return summary.samples > 0; });
    return hasSamples ? STATUS_DONE : STATUS_NO_SAMPLES;
}

int Follow(const Request& request) {
    const StopSignals stopSignals;
    const LogReport report = FollowLog(request.signal, stopSignals);
    Complain(report);
    Print(RenderReport(report, DetectTerminal()));
    return report.HasSamples() ? STATUS_DONE : STATUS_NO_SAMPLES;
}

int Run(const Request& request) {
    switch (request.task) {
        case Task::REPORT:
            return request.format == Format::HTML ? WritePage(request) : PrintReports(request);
        case Task::COMPARE:
            return PrintComparison(request);
        case Task::SUMMARY:
            return PrintSummary(request);
        case Task::FOLLOW:
            return Follow(request);
        case Task::HELP:
            Print(HELP_TEXT);
            break;
        case Task::VERSION:
            Print("padreport " PADREPORT_VERSION "\n");
            break;
    }
    return STATUS_DONE;
}

}  // namespace

}  // namespace padreport

int main(int argc, char** argv) {
    try {
        return padreport::Run(padreport::ParseCommandLine(argc, argv));
    } catch (const padreport::UsageError& failure) {
        std::fprintf(stderr, "padreport: %s\n", failure.what());
        return padreport::STATUS_USAGE;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "padreport: %s\n", failure.what());
        return padreport::STATUS_TROUBLE;
    }
}
