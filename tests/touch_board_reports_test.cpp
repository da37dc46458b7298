// Assembly and decoding of the board's reports.

#include "apps/padtune/touch_board_reports.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "apps/padtune/setup_wait.h"
#include "apps/padtune/tick_count.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/unique_fd.h"
#include "tests/report_builder.h"

bool operator==(const BoardParameter& a, const BoardParameter& b) {
    return a.code == b.code && a.value == b.value;
}

namespace {

ReportBuilder MakeSetup() {
    return ReportBuilder::Setup()
        .Parameters(0xA6, 1, 0xA7, 2)
        .Parameters(0xA8, 11, 0xA9, 12)
        .Parameters(0xAA, 21, 0xAB, 22)
        .Parameters(0, 31, 0, 32)
        .Slot(27, 0xA6A6);
}

class TouchBoardReportsTest : public testing::Test {
public:
    ~TouchBoardReportsTest() override { OutputDiagnostics = false; }

protected:
    /// Delivers a report as the port does, from one index to another.
    void Deliver(const ReportBuilder& report, unsigned first = 0, unsigned last = ReportBuilder::SLOTS - 1) {
        report.Deliver([this](unsigned index, std::uint32_t value) { m_reports.OnValue(index, value, 32); },
                       first, last);
    }

    /// Delivers a report and returns what it printed.
    std::string Send(const ReportBuilder& report) {
        testing::internal::CaptureStderr();
        Deliver(report);
        return testing::internal::GetCapturedStderr();
    }

    LiveState m_live;
    TouchBoardReports m_reports{m_live};
};

TEST_F(TouchBoardReportsTest, ReadsASetupAndPrintsItsInfoOnce) {
    std::string printed;
    for (int button = 1; button <= 11; ++button) {
        printed += strprintf("INFO: Button Threshold %02d = %d\n", button, 40 + button);
    }
    printed +=
        "UNKNOWN param 173 0\nINFO: NOISE_TH 1\nINFO: NEGNOISE_TH 2\nINFO: BASELINE_TH 11\n"
        "INFO: HYSTERESIS 12\nINFO: DEBOUNCE 21\nINFO: LOWBASELINE 22\n";
    EXPECT_EQ(Send(MakeSetup()), printed);
    EXPECT_EQ(m_reports.GetButtonCount(), 11);

    const auto setup = m_reports.TakeSetup();
    ASSERT_TRUE(setup);
    EXPECT_EQ(m_reports.TakeSetup(), nullptr);
    EXPECT_EQ(setup->buttonCount, 11);
    EXPECT_EQ(setup->fingerThresholds, (std::vector{41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51}));
    const std::vector<BoardParameter> parameters = {{0xAD, 0},  {0xA6, 1},  {0xA7, 2},
                                                    {0xA8, 11}, {0xA9, 12}, {0xAA, 21},
                                                    {0xAB, 22}, {0xC2, 31}, {0xC2, 32}};
    EXPECT_EQ(setup->parameters, parameters);
    EXPECT_EQ(Send(MakeSetup()), "UNKNOWN param 173 0\n");
    EXPECT_TRUE(m_reports.TakeSetup());
}

TEST_F(TouchBoardReportsTest, ReportsZeroCodesOnlyNearTheFront) {
    // The third known parameter ends it.
    EXPECT_THAT(Send(ReportBuilder::Setup()
                         .Parameters(0, 1, 0xA6, 2)
                         .Parameters(0xA5, 11, 0, 12)
                         .Parameters(0xA8, 21, 0, 22)
                         .Parameters(0xAC, 31, 0, 32)),
                testing::EndsWith("ZERO param 0 1\nINFO: NOISE_TH 2\nINFO: FINGER_TH 11\n"
                                  "ZERO param 0 12\nINFO: BASELINE_TH 21\nUNKNOWN param 172 31\n"));
}

TEST_F(TouchBoardReportsTest, RefusesAStrangeSetupUntilAValidOneComes) {
    for (const auto& [buttons, complaint] : {std::pair{0x00A5u, "Strange button count 0\n"},
                                             {0x04A5u, "Strange button count 4\n"},
                                             {0x0CA5u, "Strange button count 12\n"},
                                             {0x0BA4u, "Invalid button format\n"}}) {
        EXPECT_EQ(Send(MakeSetup().Slot(3, buttons)), complaint);
        EXPECT_EQ(m_reports.GetButtonCount(), -1);
        EXPECT_FALSE(m_reports.TakeSetup());
        EXPECT_EQ(Send(ReportBuilder::Diagnostics(1).Sample(1)), "");
        EXPECT_TRUE(m_live.values.samples.empty());

        Send(MakeSetup());
        EXPECT_EQ(m_reports.GetButtonCount(), 11);
        EXPECT_TRUE(m_reports.TakeSetup());
    }
}

TEST_F(TouchBoardReportsTest, TakesAnythingElseAsDiagnostics) {
    for (const auto& [slot, value] : {std::pair{0u, 0xFFFEu}, {1u, 0xC2C3u}, {1u, 0xC3C2u}, {2u, 48u}}) {
        EXPECT_EQ(Send(MakeSetup().Slot(slot, value)), "");
        EXPECT_EQ(m_reports.GetButtonCount(), -1);
    }
}

TEST_F(TouchBoardReportsTest, DecodesAndPrintsTheSamplesOfAReport) {
    Send(MakeSetup());
    OutputDiagnostics = true;
    // Button 33 has no touch bit: none of the others is its own.
    const ReportBuilder report = ReportBuilder::Diagnostics(0x80000403)
                                     .Sample(2, 100000, -70000, 300, 77)
                                     .Sample(0, 1, 1, 1, 1)
                                     .Sample(33)
                                     .Sample(32)
                                     .Sample(0)
                                     .Sample(0)
                                     .Sample(3, 0, 0, 9);
    EXPECT_EQ(Send(report),
              " 0.000: BT2: 100000 -70000    77   300 *\n 0.000: BT33:     0     0     0     0  \n"
              " 0.000: BT32:     0     0     0     0 *\n 0.000: BT3:     0     0     0     9  \n");

    ASSERT_EQ(m_live.values.samples.size(), 4u);
    EXPECT_EQ(m_live.values.touchBits, 0x80000403u);
    const ButtonSample& sample = m_live.values.samples[0];
    EXPECT_EQ((std::array{sample.value1, sample.value2, sample.value3, sample.value4}),
              (std::array{100000, -70000, 300, 77}));
    EXPECT_EQ(sample.button, 2u);
    EXPECT_EQ(sample.touched, 1);
    EXPECT_EQ(m_live.values.samples[1].touched, 0);

    m_live.runStart = getTickCount() - 12'005'000'000u;
    EXPECT_THAT(Send(report), testing::ContainsRegex("^12\\.[0-9]+: BT2"));
    m_live.runStart = getTickCount() + 60'000'000'000u;
    EXPECT_EQ(Send(report).substr(0, 7), " 0.000:");
}

TEST_F(TouchBoardReportsTest, WritesTheLinesOfAReportTogether) {
    Send(MakeSetup());
    OutputDiagnostics = true;
    int ends[2];
    // Each read from such a pipe gets one write.
    ASSERT_EQ(pipe2(ends, O_DIRECT), 0);
    const strata::UniqueFd readEnd(ends[0]);
    const strata::UniqueFd writeEnd(ends[1]);
    testing::internal::CaptureStderr();
    ASSERT_EQ(dup2(writeEnd.Get(), STDERR_FILENO), STDERR_FILENO);
    Deliver(ReportBuilder::Diagnostics(0).Sample(1).Sample(2));
    testing::internal::GetCapturedStderr();
    char text[PIPE_BUF];
    const ssize_t size = read(readEnd.Get(), text, sizeof text);
    EXPECT_EQ(std::count(text, text + size, '\n'), 2);
}

TEST_F(TouchBoardReportsTest, RemapsTheTouchBitsOfTheFourButtonBoard) {
    for (const auto& [format, wire, touched] : {std::array{32u, 0x0008u, 0x2u},
                                                {32u, 0x0220u, 0x5u},
                                                {32u, 0xFDD7u, 0x8u},
                                                {16u, 0x0208u, 0x0208u}}) {
        Send(MakeSetup().Slot(2, format));
        Send(ReportBuilder::Diagnostics(wire));
        EXPECT_EQ(m_live.values.touchBits, touched);
    }
}

TEST_F(TouchBoardReportsTest, DropsAReportThatIsCutShortAndAValueOutOfRange) {
    Send(MakeSetup());
    m_reports.OnValue(0, 0xF, 32);
    m_reports.OnValue(1, 5, 32);
    testing::internal::CaptureStderr();
    m_reports.OnValue(29, 1, 32);
    m_reports.OnValue(~0u, 1, 32);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: Diagnostics 29 - OUT OF RANGE\nERROR: Diagnostics -1 - OUT OF RANGE\n");
    EXPECT_TRUE(m_live.values.samples.empty());
    // What came before the new index 0 is forgotten.
    m_reports.OnValue(0, 1, 32);
    m_reports.OnValue(28, 0, 32);
    EXPECT_TRUE(m_live.values.samples.empty());
    EXPECT_EQ(m_live.values.touchBits, 1u);
}

TEST_F(TouchBoardReportsTest, CompletesAReportWithTheLastIndexWhateverCameBefore) {
    // An invalid setup stays in its slots.
    Send(MakeSetup().Slot(3, 0));
    Deliver(MakeSetup(), 3);
    EXPECT_EQ(m_reports.GetButtonCount(), 11);

    // The end of one report lost with the beginning of the next, and indexes that come twice.
    const auto next = ReportBuilder::Diagnostics(1).Sample(7, 71, 72, 73).Sample(6, 61, 62, 63);
    Deliver(ReportBuilder::Diagnostics(4).Sample(3, 31, 32, 33).Sample(2, 21, 22, 23), 0, 8);
    Deliver(next, 4);
    ASSERT_EQ(m_live.values.samples.size(), 2u);
    EXPECT_EQ(m_live.values.touchBits, 4u);
    EXPECT_EQ((std::array{m_live.values.samples[0].value1, m_live.values.samples[0].value3}),
              (std::array{31, 73}));
    EXPECT_EQ(m_live.values.samples[1].value1, 61);

    // Nothing of a decoded report is left for one whose beginning is lost.
    Deliver(next, 5);
    ASSERT_EQ(m_live.values.samples.size(), 1u);
    EXPECT_EQ(m_live.values.touchBits, 0u);
}

TEST_F(TouchBoardReportsTest, ASetupIsWaitedForUntilItsLinesArePrintedWhateverCameBefore) {
    // A setup that an invalid one follows before it is looked at.
    Send(MakeSetup().Slot(4, 1000));
    Send(MakeSetup().Slot(3, 0));

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const strata::UniqueFd readEnd(ends[0]);
    const strata::UniqueFd writeEnd(ends[1]);
    std::vector<char> content(static_cast<std::size_t>(fcntl(writeEnd.Get(), F_GETPIPE_SZ)));
    ASSERT_EQ(write(writeEnd.Get(), content.data(), content.size()), std::ssize(content));

    testing::internal::CaptureStderr();
    ASSERT_EQ(dup2(writeEnd.Get(), STDERR_FILENO), STDERR_FILENO);
    std::thread pollThread;
    bool madeRoom = false;
    const auto makeRoom = [&] {
        madeRoom = madeRoom || read(readEnd.Get(), content.data(), content.size()) > 0;
    };
    const std::uint64_t deadline = getTickCount() + 1'000'000'000;
    const auto setup = WaitForSetup(m_reports, deadline, [&](std::chrono::milliseconds step) {
        if (!pollThread.joinable()) {
            pollThread = std::thread([this] { Deliver(MakeSetup()); });
            while (m_reports.GetButtonCount() < 0 || getTickCount() <= deadline) {
                std::this_thread::yield();
            }
            return;
        }
        EXPECT_LT(step, std::chrono::seconds(1));
        makeRoom();
        std::this_thread::sleep_for(step);
    });
    EXPECT_TRUE(madeRoom);
    makeRoom();
    pollThread.join();
    testing::internal::GetCapturedStderr();
    ASSERT_TRUE(setup);
    EXPECT_EQ(setup->fingerThresholds[0], 41);
}

}  // namespace
