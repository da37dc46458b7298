// The page for a browser, as far as it can be seen without one: what the strips keep, its size, what a
// hostile log makes of it.

#include <gmock/gmock.h>

#include <limits>
#include <random>
#include <regex>

#include "apps/padreport/page.h"
#include "tests/padreport_runner.h"

namespace padreport {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using PadreportPage = PadreportTest;

/// The numbers that the script of a page draws from.
Json ParseStrips(const std::string& page) {
    const std::string start = "id=\"strips\">";
    const std::size_t begin = page.find(start) + start.size();
    return Json::parse(page.substr(begin, page.find("</script>", begin) - begin));
}

/// What stands in strips as differences.
std::vector<std::int64_t> Sum(const Json& differences) {
    std::vector<std::int64_t> numbers;
    std::int64_t total = 0;
    for (const Json& difference : differences) {
        numbers.push_back(total += difference.get<std::int64_t>());
    }
    return numbers;
}

Sample MakeSample(std::int64_t milliseconds, std::int32_t value, bool touched) {
    Sample sample;
    sample.milliseconds = milliseconds;
    sample.button = 1;
    sample.values = {value, -value, 0, value};
    sample.touched = touched;
    return sample;
}

TEST(ValueHistory, KeepsEveryExtremeAndTouchHoweverLongTheLog) {
    constexpr std::int64_t COUNT = 700'000;
    constexpr std::int64_t INTERVAL = 5;
    constexpr std::int64_t EVENT_EVERY = 99'991;
    ValueHistory history;
    for (std::int64_t i = 0; i < COUNT; ++i) {
        const bool isEvent = i % EVENT_EVERY == 1;
        history.Add(MakeSample(i * INTERVAL, isEvent ? static_cast<std::int32_t>(1000 + i) : 7, isEvent),
                    i == 0, 1);
    }
    const std::vector<Slice>& slices = history.GetButtons().at(1);
    EXPECT_LE(slices.size(), SLICES_MAX);
    EXPECT_GT(slices.size(), SLICES_MAX / 4);
    std::map<std::int64_t, std::int32_t> events;  // by slice
    for (std::int64_t i = 1; i < COUNT; i += EVENT_EVERY) {
        events[i * INTERVAL / history.GetSliceMilliseconds()] = static_cast<std::int32_t>(1000 + i);
    }
    for (const Slice& slice : slices) {
        const auto event = events.find(slice.index);
        const std::int32_t highest = event == events.end() ? 7 : event->second;
        EXPECT_EQ(slice.max, (std::array{highest, -7, 0, highest}));
        EXPECT_EQ(slice.min, (std::array{7, -highest, 0, 7}));
        EXPECT_EQ(slice.isTouched, event != events.end());
    }
}

TEST(ValueHistory, PutsStretchesOneAfterTheOther) {
    ValueHistory history;
    history.Add(MakeSample(500, 1, false), true, 1);
    history.Add(MakeSample(900, 2, false), false, 1);
    for (std::uint64_t run = 2; run < 1000; ++run) {
        history.Add(MakeSample(100, 3, false), true, run);
    }
    const std::vector<Slice>& slices = history.GetButtons().at(1);
    ASSERT_EQ(slices.size(), 1000);
    EXPECT_EQ(slices[0].index * history.GetSliceMilliseconds(), 500);
    EXPECT_EQ(slices[2].index * history.GetSliceMilliseconds(), 900 + STRETCH_BREAK_MILLISECONDS);
    ASSERT_EQ(history.GetStretches().size(), LISTED_STRETCHES_MAX);
    EXPECT_EQ(history.GetStretches()[1].stamp, 100);
    EXPECT_EQ(history.GetStretches()[1].start, 900 + STRETCH_BREAK_MILLISECONDS);
    EXPECT_EQ(history.GetStretches()[1].run, 2);
}

TEST(Page, StaysSmallWhateverTheValues) {
    constexpr unsigned BUTTONS = 40;
    std::mt19937 random;
    ValueHistory history;
    LogReport report;
    for (unsigned button = 1; button <= BUTTONS; ++button) {
        report.figures.buttons.emplace_back().button = button;
        report.judgements.emplace_back();
        for (std::size_t i = 0; i < SLICES_MAX; ++i) {
            Sample sample = MakeSample(static_cast<std::int64_t>(i), 0, i % 2 == 0);
            sample.button = button;
            sample.values[i % VALUE_COUNT] = static_cast<std::int32_t>(random());
            history.Add(sample, button == 1 && i == 0, 1);
        }
    }
    const std::string page = RenderPage(report, history);
    EXPECT_LT(page.size(), 3'000'000);
    const Json strips = ParseStrips(page);
    EXPECT_GT(strips["slice"], 1);
    const auto& exact = history.GetButtons().at(BUTTONS);
    const auto lowest = std::min_element(exact.begin(), exact.end(),
                                         [](const Slice& a, const Slice& b) { return a.min[2] < b.min[2]; });
    EXPECT_THAT(Sum(strips["buttons"][BUTTONS - 1]["min"][2]), testing::Contains(lowest->min[2]));
}

TEST_F(PadreportPage, HoldsTheReportWithTheStripsAndTheLicence) {
    Write("log", "INFO: Button Threshold 01 = 60\n" + SampleLine(0, 9, false) + SampleLine(500, 4, false) +
                     SampleLine(540, 120, true) + SampleLine(580, 118, true) + SampleLine(620, 5, false) +
                     SampleLine(100, 5, false) + "Strange button count 4\n");
    const Outcome outcome = Run("--html page log");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    const std::string page = read_file_throw("page");
    EXPECT_THAT(page, AllOf(HasSubstr("Complaints about the board"), HasSubstr("--finger-threshold 1,"),
                            HasSubstr("Permission is hereby granted"), HasSubstr("name=\"viewport\""),
                            HasSubstr("@media print"), Not(HasSubstr("sourceMappingURL"))));
    const Json strips = ParseStrips(page);
    EXPECT_EQ(strips["stretches"], Json::parse("[[500, 500, 1], [1620, 100, 2]]"));
    const Json& strip = strips["buttons"][0];
    EXPECT_EQ(strip["now"], 60);
    EXPECT_TRUE(strip["proposed"].is_number());
    EXPECT_EQ(Sum(strip["index"]), (std::vector<std::int64_t>{500, 540, 580, 620, 1620}));
    EXPECT_EQ(Sum(strip["min"][3]), (std::vector<std::int64_t>{4, 120, 118, 5, 5}));
    EXPECT_EQ(strip["touched"], "01100");
    // 60 counts are no threshold of a value that is 1200 at rest.
    EXPECT_EQ(Run("--signal 1 --html page log").status, 0);
    EXPECT_TRUE(ParseStrips(read_file_throw("page"))["buttons"][0]["now"].is_null());
}

TEST_F(PadreportPage, ShowsHostileTextAsText) {
    const std::string attack = "</script><script>alert(1)</script><img/src=x/onerror='alert(2)'>\"&lt;<!--";
    const std::string name = "<img src=x onerror=alert(3)>]]>\xFF";
    std::string log = "INFO: " + attack + " 5\n" + attack + "\nINFO: Button Threshold " + attack + "\n" +
                      " 2.480: BT3:  1360  1236     8 " + attack + "\n";
    for (int i = 1; i < 50; ++i) {
        log += SampleLine(std::int64_t{40} * i, i % 9, false);
    }
    Write(name, log);
    ASSERT_EQ(Run("--html page '" + name + "'").status, 0);
    const std::string page = read_file_throw("page");
    for (const char* const markup : {"<img", "<script>alert", "<!--", "onerror='"}) {
        EXPECT_THAT(page, Not(HasSubstr(markup)));
    }
    EXPECT_THAT(page, AllOf(HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;"), HasSubstr("&amp;lt;&lt;!--"),
                            HasSubstr("&lt;img src=x onerror=alert(3)&gt;]]&gt;")));
    // The numbers of the strips, the chart library, the page's own script.
    const std::regex script("</?script");
    EXPECT_EQ(std::distance(std::sregex_iterator(page.begin(), page.end(), script), {}), 2 * 3);
}

TEST_F(PadreportPage, IsNotWrittenWhereThereIsNothingToShow) {
    Write("log", SampleLine(500, 0, false));
    Write("page", "old");
    Write("empty", "");
    for (const auto& [arguments, status] : {std::pair("--html page empty", 1),
                                            {"--html page missing", 1},
                                            {"--html missing/page log", 1},
                                            {"--html /dev/full log", 1},
                                            {"--html page log log", 2},
                                            {"--html page --summary log", 2},
                                            {"--html page --csv log", 2},
                                            {"log --html", 2}}) {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.status, status) << arguments;
        EXPECT_THAT(outcome.errors, testing::MatchesRegex("padreport: [^\n]*\n")) << arguments;
    }
    EXPECT_EQ(read_file_throw("page"), "old");
}

}  // namespace

}  // namespace padreport
