// The figures, verdicts and thresholds of padreport, for logs whose figures are known.

#include <gmock/gmock.h>

#include <vector>

#include "tests/padreport_runner.h"

namespace padreport {

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int PERIOD = 10;

/// A run of button 1 in which the star never changes, so that all of its samples count.
std::string Run1(const std::vector<int>& signals, bool touched) {
    std::string text;
    std::int64_t milliseconds = 1;
    for (const int signal : signals) {
        text += SampleLine(milliseconds, signal, touched);
        milliseconds += PERIOD;
    }
    return text;
}

class PadreportFigures : public PadreportTest {
protected:
    static Json Button(const std::string& log, const std::string& options = "") {
        return Report(log, options)["buttons"][0];
    }
};

TEST_F(PadreportFigures, AreExact) {
    const std::string log = Run1({7, 1, 3, -4, 3, 3, 2, 5000}, false) + Run1({90, 100, 110, 120}, true);
    const Json value = Button(log)["values"][3];
    const Json& rest = value["rest"];
    EXPECT_EQ(rest["samples"], 8);
    EXPECT_EQ(rest["min"], -4);
    EXPECT_EQ(rest["median"]["value"], 3);
    EXPECT_EQ(rest["max"], 5000);
    // The quartiles are 1 and 3.
    EXPECT_DOUBLE_EQ(rest["spread"]["value"], 2 / 1.349);
    EXPECT_EQ(value["touched"]["median"]["value"], 100);
    EXPECT_DOUBLE_EQ(value["separation"]["value"], 97 / (2 / 1.349));
    // Without a spread the unit is one count.
    EXPECT_EQ(Button(log)["values"][1]["rest"]["spread"]["value"], 0);
    EXPECT_EQ(Button(Run1({5, 5}, false) + Run1({9}, true))["values"][3]["separation"]["value"], 4);
}

TEST_F(PadreportFigures, MeasureRateGapsAndTouches) {
    std::string log = SampleLine(0, 0, true);
    for (int i = 1; i <= 101; ++i) {
        // Touched at the start, 210 to 250 ms, 400 to 500 ms, at the end; two reports are missing before 300
        // ms, and one and a half before 600 ms.
        const int ms = i * PERIOD;
        const bool touched = ms < 50 || (ms >= 210 && ms < 250) || (ms >= 400 && ms < 500) || ms > 1000;
        if ((ms < 270 || ms >= 300) && (ms < 570 || ms >= 600)) {
            log += SampleLine(ms, 0, touched);
        }
    }
    const Json button = Button(log);
    EXPECT_EQ(button["samples"], 96);
    EXPECT_EQ(button["untimed_samples"], 1);
    EXPECT_DOUBLE_EQ(button["rate_per_s"], 94);
    EXPECT_EQ(button["gaps"], Json::parse(R"({"count": 2, "longest_s": 0.04})"));
    EXPECT_EQ(button["touches"],
              Json::parse(R"({"count": 4, "shortest_s": 0.04, "median_s": 0.04, "longest_s": 0.1})"));
    // Three intervals, or 20 ms, are no gap yet.
    EXPECT_EQ(Button(Run1({0, 0, 0}, false) + SampleLine(51, 0, false))["gaps"]["count"], 0);
    EXPECT_EQ(Button(SampleLine(1, 0, false) + SampleLine(2, 0, false) + SampleLine(3, 0, false) +
                     SampleLine(23, 0, false))["gaps"]["count"],
              0);
}

TEST_F(PadreportFigures, LeaveOutWhatIsNearAChangeOfTheStar) {
    /// Samples every 10 ms whose signal is the time; touched from `from` to before `to`.
    const auto make = [](int from, int to, int end) {
        std::string log;
        for (int ms = PERIOD; ms < end; ms += PERIOD) {
            log += SampleLine(ms, ms, ms >= from && ms < to);
        }
        return log;
    };
    const struct {
        std::string log;
        int restMin, restMax, touchedMin, touchedMax, edges;
    } rows[] = {
        // Long spans lose 50 ms at each change.
        {make(1000, 1200, 2000), 10, 1990, 1050, 1150, 18},
        // A touch that is shorter is all that there is of it.
        {make(1000, 1190, 2000), 10, 1990, 1000, 1180, 9},
        // Of spans at the start and end of a log nobody knows how long they are.
        {make(0, 100, 1000), 150, 990, 10, 50, 9},
        {make(900, 1000, 1000), 10, 850, 950, 990, 9},
    };
    for (const auto& row : rows) {
        const Json button = Button(row.log);
        const Json value = button["values"][3];
        EXPECT_EQ(value["rest"]["min"], row.restMin);
        EXPECT_EQ(value["rest"]["max"], row.restMax);
        EXPECT_EQ(value["touched"]["min"], row.touchedMin);
        EXPECT_EQ(value["touched"]["max"], row.touchedMax);
        EXPECT_EQ(button["edge_samples"], row.edges);
        EXPECT_EQ(value["rest"]["samples"].get<int>() + value["touched"]["samples"].get<int>() + row.edges,
                  button["samples"]);
    }
}

TEST_F(PadreportFigures, TellDriftFromSteps) {
    std::string log;
    for (int run = 0; run < 2; ++run) {
        for (int ms = 0; ms <= 30'000; ms += 100) {
            // 6 counts a minute down, and 500 up from run to run. Touches and untimed lines take no part.
            const bool touched = ms % 5000 > 4000;
            log += SampleLine(ms, ms == 0 || touched ? 900 : 100 + run * 500 - ms / 10'000, touched);
        }
    }
    EXPECT_NEAR(Button(log)["values"][3]["drift_per_minute"], -6, 0.8);
    EXPECT_NEAR(Button(log)["values"][1]["drift_per_minute"], 0, 1e-9);
    // Ten seconds are needed.
    EXPECT_TRUE(Button(Run1(std::vector<int>(999, 5), false))["values"][3]["drift_per_minute"].is_null());
    EXPECT_FALSE(Button(Run1(std::vector<int>(1001, 5), false))["values"][3]["drift_per_minute"].is_null());
}

TEST_F(PadreportFigures, GiveVerdictsAndThresholds) {
    const struct {
        std::vector<int> rest;
        std::vector<int> touched;
        const char* thresholdNow;  // empty: not known
        const char* verdict;
        const char* threshold;  // JSON
    } rows[] = {
        {{0, 0, 0}, {100, 101, 102}, "", "safe", "50"},
        {{0, 0, 0}, {100, 101, 102}, "50", "safe", "50"},
        // A threshold that is too near to one side, or is not about this value.
        {{0, 0, 0}, {100, 101, 102}, "95", "tight", "50"},
        {{0, 0, 0}, {100, 101, 102}, "12", "tight", "50"},
        {{0, 0, 0}, {100, 101, 102}, "13", "safe", "50"},
        {{0, 0, 0}, {100, 101, 102}, "200", "safe", "50"},
        {{1000, 1000}, {1100, 1101}, "60", "safe", "1050"},
        // Margins of 3 units: the spread is 10 / 1.349, so 45 are enough, 44 are not.
        {{0, 0, 10, 10}, {55, 56}, "", "safe", "32"},
        {{0, 0, 10, 10}, {54, 55}, "", "tight", "null"},
        // Margins of an eighth of the rise.
        {{0, 0, 0, 75}, {100, 100}, "", "safe", "37"},
        {{0, 0, 0, 76}, {100, 100}, "", "tight", "38"},
        // Stars from a threshold that is too low: the values tell better.
        {{0, 5, 9, 20}, {21, 30, 118, 119, 120}, "20", "tight", "74"},
        // And from one that is too high.
        {{0, 0, 0, 0, 0, 55, 57}, {61, 62, 63}, "60", "tight", "27"},
        {{0, 0, 80}, {70, 90, 91}, "", "overlapping", "35"},
        {{0, 20, 40, 60, 80}, {50, 70, 90, 100}, "", "overlapping", "null"},
        {{100, 101}, {20, 21}, "", "overlapping", "null"},
        {{0, 1, 2}, {}, "", "never touched", "null"},
        {{}, {0, 1, 2}, "", "always touched", "null"},
    };
    for (const auto& row : rows) {
        const std::string threshold(row.thresholdNow);
        const std::string info = threshold.empty() ? "" : "INFO: Button Threshold 01 = " + threshold + "\n";
        const Json button = Button(info + Run1(row.rest, false) + Run1(row.touched, true));
        const std::string where =
            testing::PrintToString(row.rest) + testing::PrintToString(row.touched) + threshold;
        EXPECT_EQ(button["verdict"], row.verdict) << where;
        const Json& proposed = button["threshold_proposed"];
        EXPECT_EQ(proposed.is_null() ? proposed : proposed["value"], Json::parse(row.threshold)) << where;
    }
}

TEST_F(PadreportFigures, MakeACommandOfWhatCanBeSet) {
    std::string log;
    for (const auto& [button, lift] : {std::pair(2, 100), {3, 511}, {4, 512}, {7, 100}, {9, 0}}) {
        for (int run = 0; run < 2; ++run) {
            log += SampleLine(run == 0 ? 20 : 10, button, {0, 0, 0, run == 0 ? 0 : lift}, run == 1);
        }
    }
    Write("log", log);
    const std::string report = Run("log").output;
    EXPECT_THAT(report, HasSubstr("\n\npadtune --finger-threshold 2,50 --finger-threshold 3,255 \\\n"
                                  "    --finger-threshold 7,50\n\n"));
    EXPECT_THAT(report,
                HasSubstr("BT4: the threshold 256 cannot be set: commands to the board carry 0 to 255.\n"));
    EXPECT_THAT(report, HasSubstr("BT9: no safe threshold: a touch does not raise the value.\n"));
    EXPECT_EQ(Report(log)["command"],
              "padtune --finger-threshold 2,50 --finger-threshold 3,255 --finger-threshold 7,50");
    // Of the first value there is nothing to set, and the rules are said all the same.
    const std::string other = Run("--signal 1 log").output;
    EXPECT_THAT(other, HasSubstr("Verdicts by value 1\n"));
    EXPECT_THAT(other, Not(HasSubstr("padtune --finger")));
    EXPECT_THAT(other, HasSubstr("\nProposed threshold: "));
}

}  // namespace

}  // namespace padreport
