// Assembly and decoding of the board's reports.

#include "apps/padtune/touch_board_reports.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "apps/padtune/setup_wait.h"
#include "apps/padtune/tick_count.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/unique_fd.h"

bool operator==(const BoardParameter& a, const BoardParameter& b) {
    return a.code == b.code && a.value == b.value;
}

namespace {

using Slots = std::array<std::uint32_t, 29>;

/// A valid setup report. Where a word holds codes in its low bytes, the others mean nothing.
Slots MakeSetup() {
    Slots slots{0xFFFF, 0xA5A5C2C2, 16, 0x01020BA5};
    for (unsigned button = 1; button <= 11; ++button) {
        slots[3 + button] = 40 + button;
    }
    const std::uint32_t groups[] = {0x00A5A7A6, 0xFFFFA9A8, 0x80A5ABAA, 0x00FF0000, 0x0000A6A6};
    for (unsigned slot = 15; slot < slots.size(); ++slot) {
        const unsigned group = (slot - 15) / 3;
        slots[slot] = slot % 3 == 0 ? groups[group] : 10 * group + slot % 3;
    }
    return slots;
}

class TouchBoardReportsTest : public testing::Test {
public:
    ~TouchBoardReportsTest() override { OutputDiagnostics = false; }

protected:
    /// Delivers a report as the port does, from one index to another.
    void Deliver(const Slots& slots, unsigned first = 0, unsigned last = 28) {
        for (unsigned index = first; index <= last; ++index) {
            reports.OnValue(index, slots[index], 32);
        }
    }

    /// Delivers a report and returns what it printed.
    std::string Send(const Slots& slots) {
        testing::internal::CaptureStderr();
        Deliver(slots);
        return testing::internal::GetCapturedStderr();
    }

    LiveState live;
    TouchBoardReports reports{live};
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
    EXPECT_EQ(reports.GetButtonCount(), 11);

    const auto setup = reports.TakeSetup();
    ASSERT_TRUE(setup);
    EXPECT_EQ(reports.TakeSetup(), nullptr);
    EXPECT_EQ(setup->buttonCount, 11);
    EXPECT_EQ(setup->fingerThresholds, (std::vector{41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51}));
    const std::vector<BoardParameter> parameters = {{0xAD, 0},  {0xA6, 1},  {0xA7, 2},
                                                    {0xA8, 11}, {0xA9, 12}, {0xAA, 21},
                                                    {0xAB, 22}, {0xC2, 31}, {0xC2, 32}};
    EXPECT_EQ(setup->parameters, parameters);
    EXPECT_EQ(Send(MakeSetup()), "UNKNOWN param 173 0\n");
    EXPECT_TRUE(reports.TakeSetup());
}

TEST_F(TouchBoardReportsTest, ReportsZeroCodesOnlyNearTheFront) {
    Slots slots = MakeSetup();
    slots[15] = 0xA600;
    slots[18] = 0x00A5;
    slots[21] = 0x00A8;
    slots[24] = 0x00AC;
    // The third known parameter ends it.
    EXPECT_THAT(Send(slots),
                testing::EndsWith("ZERO param 0 1\nINFO: NOISE_TH 2\nINFO: FINGER_TH 11\n"
                                  "ZERO param 0 12\nINFO: BASELINE_TH 21\nUNKNOWN param 172 31\n"));
}

TEST_F(TouchBoardReportsTest, RefusesAStrangeSetupUntilAValidOneComes) {
    for (const auto& [buttons, complaint] : {std::pair{0x00A5u, "Strange button count 0\n"},
                                             {0x04A5u, "Strange button count 4\n"},
                                             {0x0CA5u, "Strange button count 12\n"},
                                             {0x0BA4u, "Invalid button format\n"}}) {
        Slots strange = MakeSetup();
        strange[3] = buttons;
        EXPECT_EQ(Send(strange), complaint);
        EXPECT_EQ(reports.GetButtonCount(), -1);
        EXPECT_FALSE(reports.TakeSetup());
        EXPECT_EQ(Send(Slots{1, 1}), "");
        EXPECT_TRUE(live.values.samples.empty());

        Send(MakeSetup());
        EXPECT_EQ(reports.GetButtonCount(), 11);
        EXPECT_TRUE(reports.TakeSetup());
    }
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
    Slots slots{0x80000403, 0xFFFF4D02, 100000, static_cast<std::uint32_t>(-70000), 300};
    slots[5] = 0x01010100;  // no button: the group does not count
    slots[6] = 1;
    slots[9] = 33;  // no touch bit: none of the others is its own
    slots[13] = 32;
    slots[28] = 9;
    slots[25] = 3;
    EXPECT_EQ(Send(slots),
              " 0.000: BT2: 100000 -70000    77   300 *\n 0.000: BT33:     0     0     0     0  \n"
              " 0.000: BT32:     0     0     0     0 *\n 0.000: BT3:     0     0     0     9  \n");

    ASSERT_EQ(live.values.samples.size(), 4u);
    EXPECT_EQ(live.values.touchBits, 0x80000403u);
    const ButtonSample& sample = live.values.samples[0];
    EXPECT_EQ((std::array{sample.value1, sample.value2, sample.value3, sample.value4}),
              (std::array{100000, -70000, 300, 77}));
    EXPECT_EQ(sample.button, 2u);
    EXPECT_EQ(sample.touched, 1);
    EXPECT_EQ(live.values.samples[1].touched, 0);

    live.runStart = getTickCount() - 12'005'000'000u;
    EXPECT_THAT(Send(slots), testing::ContainsRegex("^12\\.[0-9]+: BT2"));
    live.runStart = getTickCount() + 60'000'000'000u;
    EXPECT_EQ(Send(slots).substr(0, 7), " 0.000:");
}

TEST_F(TouchBoardReportsTest, RemapsTheTouchBitsOfTheFourButtonBoard) {
    Slots setup = MakeSetup();
    for (const auto& [format, wire, touched] : {std::array{32u, 0x0008u, 0x2u},
                                                {32u, 0x0220u, 0x5u},
                                                {32u, 0xFDD7u, 0x8u},
                                                {16u, 0x0208u, 0x0208u}}) {
        setup[2] = format;
        Send(setup);
        Send(Slots{wire});
        EXPECT_EQ(live.values.touchBits, touched);
    }
}

TEST_F(TouchBoardReportsTest, DropsAReportThatIsCutShortAndAValueOutOfRange) {
    Send(MakeSetup());
    reports.OnValue(0, 0xF, 32);
    reports.OnValue(1, 5, 32);
    testing::internal::CaptureStderr();
    reports.OnValue(29, 1, 32);
    reports.OnValue(~0u, 1, 32);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: Diagnostics 29 - OUT OF RANGE\nERROR: Diagnostics -1 - OUT OF RANGE\n");
    EXPECT_TRUE(live.values.samples.empty());
    // What came before the new index 0 is forgotten.
    reports.OnValue(0, 1, 32);
    reports.OnValue(28, 0, 32);
    EXPECT_TRUE(live.values.samples.empty());
    EXPECT_EQ(live.values.touchBits, 1u);
}

TEST_F(TouchBoardReportsTest, CompletesAReportWithTheLastIndexWhateverCameBefore) {
    // An invalid setup stays in its slots.
    Slots invalid = MakeSetup();
    invalid[3] = 0;
    Send(invalid);
    Deliver(MakeSetup(), 3);
    EXPECT_EQ(reports.GetButtonCount(), 11);

    // The end of one report lost with the beginning of the next, and indexes that come twice.
    Deliver({4, 3, 31, 32, 33, 2, 21, 22, 23}, 0, 8);
    Deliver({1, 7, 71, 72, 73, 6, 61, 62, 63}, 4);
    ASSERT_EQ(live.values.samples.size(), 2u);
    EXPECT_EQ(live.values.touchBits, 4u);
    EXPECT_EQ((std::array{live.values.samples[0].value1, live.values.samples[0].value3}),
              (std::array{31, 73}));
    EXPECT_EQ(live.values.samples[1].value1, 61);

    // Nothing of a decoded report is left for one whose beginning is lost.
    Deliver({1, 7, 71, 72, 73, 6, 61, 62, 63}, 5);
    ASSERT_EQ(live.values.samples.size(), 1u);
    EXPECT_EQ(live.values.touchBits, 0u);
}

TEST_F(TouchBoardReportsTest, ASetupIsWaitedForUntilItsLinesArePrintedWhateverCameBefore) {
    // A setup that an invalid one follows before it is looked at.
    Slots slots = MakeSetup();
    slots[4] = 1000;
    Send(slots);
    slots[3] = 0;
    Send(slots);

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
    const auto setup = WaitForSetup(reports, ~std::uint64_t{0}, [&](std::chrono::milliseconds step) {
        if (!pollThread.joinable()) {
            pollThread = std::thread([this] { Deliver(MakeSetup()); });
            while (reports.GetButtonCount() < 0) {
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
