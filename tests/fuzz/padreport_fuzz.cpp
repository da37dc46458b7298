// The reader of diagnostic logs, and what is made of them. Input: the length of the pieces in which the log
// is read, one byte, then the log.

#include <algorithm>

#include "apps/padreport/log_report.h"
#include "apps/padreport/report_csv.h"
#include "apps/padreport/report_json.h"
#include "apps/padreport/report_text.h"
#include "lib/platform/string_operations.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using namespace padreport;

/// Reads a log, checks what the reader hands out, and keeps it as text.
class Reading : public LogRecords {
public:
    Reading(const std::string& log, std::size_t pieceLength) {
        for (std::size_t start = 0; start < log.size(); start += pieceLength) {
            reader.Feed(std::string_view(log).substr(start, pieceLength));
        }
        reader.Finish();
        statistics.Finish();
    }

    void OnSample(const Sample& sample) override {
        REQUIRE(sample.button >= 1 && sample.button <= BUTTON_MAX && sample.milliseconds >= 0);
        REQUIRE(sample.line > m_line);
        m_line = sample.line;
        const auto& [value1, value2, value3, value4] = sample.values;
        records += strprintf("%llu %lld %u %d %d %d %d %d\n", static_cast<unsigned long long>(sample.line),
                             static_cast<long long>(sample.milliseconds), sample.button, value1, value2,
                             value3, value4, sample.touched ? 1 : 0);
        statistics.OnSample(sample);
    }
    void OnThreshold(unsigned button, std::int32_t value) override {
        REQUIRE(button >= 1 && button <= BUTTON_MAX);
        records += strprintf("%u %d\n", button, value);
        statistics.OnThreshold(button, value);
    }
    void OnParameter(std::string_view name, std::int32_t value) override {
        REQUIRE(!name.empty() && name.size() <= LINE_LENGTH_MAX);
        records += std::string(name) + strprintf(" %d\n", value);
        statistics.OnParameter(name, value);
    }

    LogStatistics statistics;
    LogReader reader{*this};
    std::string records;

private:
    std::uint64_t m_line = 0;
};

void CheckCounts(const LogReport& report, const std::string& log) {
    std::uint64_t lines = 0;
    for (const LineCount& count : report.figures.lines) {
        lines += count.count;
        REQUIRE((count.count == 0) == (count.firstLine == 0));
    }
    const bool hasOpenEnd = !log.empty() && log.back() != '\n';
    REQUIRE(lines == static_cast<std::uint64_t>(std::count(log.begin(), log.end(), '\n')) + hasOpenEnd);

    std::uint64_t samples = 0;
    for (const ButtonFigures& button : report.figures.buttons) {
        samples += button.samples;
        for (const ValueFigures& value : button.values) {
            const std::uint64_t rest = value.rest ? value.rest->count : 0;
            const std::uint64_t touched = value.touched ? value.touched->count : 0;
            REQUIRE(rest + touched + button.edgeSamples == button.samples);
            REQUIRE(!value.rest || (value.rest->min <= value.rest->median.value &&
                                    value.rest->median.value <= value.rest->max));
        }
    }
    REQUIRE(samples == report.figures.GetSampleCount());
}

void CheckThresholds(const LogReport& report) {
    for (const Judgement& judgement : report.judgements) {
        REQUIRE(!judgement.threshold || judgement.threshold->GetMargin() >= 3);
        REQUIRE(judgement.verdict != Verdict::SAFE || *judgement.clearance >= 6);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t pieceLength = input.Take<std::uint8_t>() + std::size_t{1};
    const std::string log = input.TakeRest();
    const Reading reading(log, pieceLength);
    const LogReport report = MakeLogReport("log", "", reading.reader, reading.statistics, VALUE_COUNT - 1);
    CheckCounts(report, log);
    CheckThresholds(report);
    REQUIRE(!RenderReport(report, Terminal()).empty() && !RenderLiveReport(report, Terminal()).empty());
    REQUIRE(!FormatJson(MakeReportJson(report)).empty() && !FormatCsv({report}).empty());

    // How the log was cut into pieces does not show. Whatever came before, whole lines that follow are
    // understood.
    const Reading longer(log + "\n 1.000: BT1:  1217  1216     5     0  \n", size + 100);
    REQUIRE(longer.records.ends_with(" 1000 1 1217 1216 5 0 0\n"));
    REQUIRE(!log.ends_with('\n') || longer.records.starts_with(reading.records));
    return 0;
}
