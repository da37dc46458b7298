// Assembly and decoding of the board's reports.

#include "apps/padtune/touch_board_reports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "apps/padtune/tick_count.h"
#include "virtual_player/board/touch_board_model.h"

namespace {

using Slots = std::array<std::uint32_t, 29>;

/// A valid setup report, with parameters where the test says.
Slots MakeSetup() {
    Slots slots{};
    slots[0] = 0xFFFF;
    slots[1] = 0xC2C2;
    slots[2] = 16;
    slots[3] = 11 << 8 | 0xA5;
    for (unsigned button = 1; button <= 11; ++button) {
        slots[3 + button] = 40 + button;
    }
    const std::uint32_t groups[] = {0xA7A6, 0xA9A8, 0xABAA, 0x0000};
    for (unsigned group = 0; group < 4; ++group) {
        slots[15 + 3 * group] = groups[group];
        slots[16 + 3 * group] = 10 * group + 1;
        slots[17 + 3 * group] = 10 * group + 2;
    }
    return slots;
}

class TouchBoardReportsTest : public testing::Test {
protected:
    ~TouchBoardReportsTest() override { OutputDiagnostics = false; }

    /// Delivers a report as the port does and returns what it printed.
    std::string Send(const Slots& slots) {
        testing::internal::CaptureStderr();
        for (unsigned index = 0; index < slots.size(); ++index) {
            reports.OnValue(index, slots[index], 32);
        }
        return testing::internal::GetCapturedStderr();
    }

    LiveState live;
    TouchBoardReports reports{live};
};

TEST_F(TouchBoardReportsTest, ReadsASetupAndPrintsItsInfoOnce) {
    const std::string unknown = "UNKNOWN param 173 0\n";
    const std::string first = Send(MakeSetup());
    EXPECT_EQ(
        first,
        "INFO: Button Threshold 01 = 41\nINFO: Button Threshold 02 = 42\nINFO: Button Threshold 03 = 43\n"
        "INFO: Button Threshold 04 = 44\nINFO: Button Threshold 05 = 45\nINFO: Button Threshold 06 = 46\n"
        "INFO: Button Threshold 07 = 47\nINFO: Button Threshold 08 = 48\nINFO: Button Threshold 09 = 49\n"
        "INFO: Button Threshold 10 = 50\nINFO: Button Threshold 11 = 51\n" +
            unknown +
            "INFO: NOISE_TH 1\nINFO: NEGNOISE_TH 2\nINFO: BASELINE_TH 11\nINFO: HYSTERESIS 12\n"
            "INFO: DEBOUNCE 21\nINFO: LOWBASELINE 22\n");
    EXPECT_EQ(reports.GetButtonCount(), 11);

    const auto setup = reports.TakeSetup();
    ASSERT_TRUE(setup);
    EXPECT_EQ(reports.TakeSetup(), nullptr);
    EXPECT_EQ(setup->buttonCount, 11);
    EXPECT_EQ(setup->fingerThresholds.size(), 11u);
    EXPECT_EQ(setup->fingerThresholds[10], 51);
    std::vector<std::pair<std::uint32_t, std::int32_t>> parameters;
    for (const BoardParameter& parameter : setup->parameters) {
        parameters.emplace_back(parameter.code, parameter.value);
    }
    EXPECT_EQ(parameters, (decltype(parameters){{0xAD, 0},
                                                {0xA6, 1},
                                                {0xA7, 2},
                                                {0xA8, 11},
                                                {0xA9, 12},
                                                {0xAA, 21},
                                                {0xAB, 22},
                                                {0xC2, 31},
                                                {0xC2, 32}}));
    EXPECT_EQ(Send(MakeSetup()), unknown);
    EXPECT_TRUE(reports.TakeSetup());
}

TEST_F(TouchBoardReportsTest, ReportsZeroCodesOnlyNearTheFront) {
    Slots slots = MakeSetup();
    slots[15] = 0xA600;
    slots[18] = 0x00A5;
    slots[21] = 0x00A8;
    slots[24] = 0x00AC;
    const std::string printed = Send(slots);
    // The third known parameter ends it.
    EXPECT_THAT(printed, testing::EndsWith("ZERO param 0 1\nINFO: NOISE_TH 2\nINFO: FINGER_TH 11\n"
                                           "ZERO param 0 12\nINFO: BASELINE_TH 21\nUNKNOWN param 172 31\n"));
}

TEST_F(TouchBoardReportsTest, RefusesAStrangeSetupUntilAValidOneComes) {
    Slots strange = MakeSetup();
    strange[3] = 4 << 8 | 0xA5;
    EXPECT_EQ(Send(strange), "Strange button count 4\n");
    EXPECT_EQ(reports.GetButtonCount(), -1);
    EXPECT_FALSE(reports.TakeSetup());

    Send(MakeSetup());
    EXPECT_EQ(reports.GetButtonCount(), 11);
    strange[3] = 11 << 8 | 0xA4;
    EXPECT_EQ(Send(strange), "Invalid button format\n");
    EXPECT_EQ(reports.GetButtonCount(), -1);

    Slots diagnostics{1, 1};
    EXPECT_EQ(Send(diagnostics), "");
    EXPECT_TRUE(live.samples.empty());
}

TEST_F(TouchBoardReportsTest, TakesAnythingElseAsDiagnostics) {
    for (const auto& [slot, value] : {std::pair{0u, 0xFFFEu}, {1u, 0xC2C3u}, {1u, 0xC3C2u}, {2u, 48u}}) {
        Slots slots = MakeSetup();
        slots[slot] = value;
        EXPECT_EQ(Send(slots), "");
        EXPECT_EQ(reports.GetButtonCount(), -1);
    }
}

TEST_F(TouchBoardReportsTest, DecodesAndPrintsTheSamplesOfAReport) {
    Send(MakeSetup());
    OutputDiagnostics = true;
    Slots slots{};
    slots[0] = 0x0402;
    slots[1] = 77u << 8 | 2;
    slots[2] = 100;
    slots[3] = static_cast<std::uint32_t>(-5);
    slots[4] = 300;
    slots[6] = 1;  // no button: the group does not count
    slots[25] = 3;
    slots[28] = 9;
    EXPECT_EQ(Send(slots),
              " 0.000: BT2:   100    -5    77   300 *\n 0.000: BT3:     0     0     0     9  \n");

    ASSERT_EQ(live.samples.size(), 2u);
    EXPECT_EQ(live.touchBits, 0x0402u);
    EXPECT_EQ(live.samples[0].button, 2u);
    EXPECT_EQ(live.samples[0].value2, -5);
    EXPECT_EQ(live.samples[0].value3, 300);
    EXPECT_EQ(live.samples[0].value4, 77);
    EXPECT_EQ(live.samples[0].touched, 1);
    EXPECT_EQ(live.samples[1].touched, 0);

    live.runStart = getTickCount() - 12'005'000'000u;
    EXPECT_THAT(Send(slots), testing::ContainsRegex("^12\\.[0-9]+: BT2"));
    live.runStart = getTickCount() + 60'000'000'000u;
    EXPECT_EQ(Send(slots).substr(0, 7), " 0.000:");
}

TEST_F(TouchBoardReportsTest, RemapsTheTouchBitsOfTheFourButtonBoard) {
    Slots setup = MakeSetup();
    setup[2] = 32;
    Send(setup);
    for (const auto& [wire, touched] : {std::pair{0x0208u, 0x3u}, {0x0030u, 0xCu}, {0xFDC7u, 0x0u}}) {
        Send(Slots{wire});
        EXPECT_EQ(live.touchBits, touched);
    }
}

TEST_F(TouchBoardReportsTest, DropsAReportThatIsCutShortAndAValueOutOfRange) {
    Send(MakeSetup());
    reports.OnValue(0, 0xF, 32);
    reports.OnValue(1, 5, 32);
    testing::internal::CaptureStderr();
    reports.OnValue(29, 1, 32);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: Diagnostics 29 - OUT OF RANGE\n");
    EXPECT_TRUE(live.samples.empty());
    // What came before the new index 0 is forgotten.
    reports.OnValue(0, 1, 32);
    reports.OnValue(28, 0, 32);
    EXPECT_TRUE(live.samples.empty());
    EXPECT_EQ(live.touchBits, 1u);
}

TEST_F(TouchBoardReportsTest, UnderstandsTheVirtualBoard) {
    VirtualBoard::TouchBoardModel board("KP120");
    board.Connect();
    board.WriteLedSetup({0x2C2, 0, 0});
    board.SetTouched(2, true);
    Send(board.SetupReport());
    ASSERT_EQ(reports.GetButtonCount(), 11);
    Send(board.DiagnosticsReport());
    EXPECT_EQ(live.touchBits, 2u);
    ASSERT_EQ(live.samples.size(), 1u);
    EXPECT_EQ(live.samples[0].button, 2u);
    EXPECT_EQ(live.samples[0].touched, 1);
}

}  // namespace
