#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "virtual_player/board/control_lines.h"
#include "virtual_player/board/touch_board_model.h"

namespace VirtualPlayer {
namespace {

constexpr std::int64_t PERIOD = 40'000'000;

TEST(TouchBoardModel, SetupTellsWhatTheHostConfiguredUntilAReset) {
    TouchBoardModel board("KP480");
    const DiagnosticsWords fresh = board.SetupReport();
    EXPECT_EQ((std::array{0xFFFFu, 0xC2C2u, 16u, 0x0BA5u}),
              (std::array{fresh[0], fresh[1], fresh[2], fresh[3]}));
    EXPECT_EQ((std::array{0xA7A6u, 0xA9A8u, 0xABAAu, 0u}),
              (std::array{fresh[15], fresh[18], fresh[21], fresh[24]}));

    board.WriteLedSetup({0x002803A5, 0, 0});  // threshold 40 for button 3
    board.WriteLedSetup({0x000700A9, 0, 0});  // hysteresis 7
    board.WriteLedSetup({0x00280CA5, 0, 0});  // there is no button 12
    DiagnosticsWords expected = fresh;
    expected[6] = 40;
    expected[20] = 7;
    EXPECT_EQ(expected, board.SetupReport());
    EXPECT_EQ("ignored 0x00280CA5", board.TakeRecords().back());

    board.WriteLedSetup({0x000000C0, 0, 0});
    EXPECT_EQ(fresh, board.SetupReport());
}

TEST(TouchBoardModel, AChangedMaskWordIsAMaskWriteAndItsCommandIsARepeat) {
    TouchBoardModel board("KP480");
    board.WriteLedSetup({0xC0, 0, 0});
    board.WriteLedSetup({0xC0, 4, 0});
    board.WriteLedSetup({0xC0, 4, 2});
    board.WriteLedSetup({0xC0, 4, 2});  // the reset forgets the masks, but the host goes on repeating them
    board.WriteLedSetup({0x1C2, 4, 2});
    board.WriteLeds({0, 3});
    EXPECT_EQ((std::vector<std::string>{"command 0x000000C0", "reset", "button-mask 0x00000004",
                                        "led-mask 0x00000002", "command 0x000000C0", "reset",
                                        "command 0x000001C2", "led 2 0x00000003"}),
              board.TakeRecords());
}

TEST(TouchBoardModel, DiagnosticsComeAtTheRateForTheFirstSevenSelections) {
    TouchBoardModel board("KP480");
    board.Advance(0);
    EXPECT_FALSE(board.NextReportTime());
    for (const unsigned button : {9u, 9u, 1u, 2u, 3u, 4u, 5u, 6u, 7u}) {
        board.WriteLedSetup({0xC2 | button << 8, 0, 0});
    }
    board.SetTouched(9, true);
    board.TakeReports();
    board.Advance(0);
    board.Advance(PERIOD - 1);
    EXPECT_TRUE(board.TakeReports().empty());
    board.Advance(PERIOD * 20);
    EXPECT_EQ(PERIOD * 21, board.NextReportTime());
    EXPECT_EQ(19u, board.MissedReports());
    const auto reports = board.TakeReports();
    ASSERT_EQ(1u, reports.size());
    const std::vector<std::uint32_t>& words = reports[0].words;
    EXPECT_EQ(1u << 8, words[0]);
    EXPECT_EQ((std::array{9u, 1u, 6u}), (std::array{words[1] & 0xFF, words[5] & 0xFF, words[25] & 0xFF}));
    EXPECT_GT(words[2] - words[3], board.SetupReport()[12]);  // the finger is over its threshold
    EXPECT_EQ(0u, words[8]);
}

TEST(TouchBoardModel, AButtonIsAsNoisyAndAsWeakAsItIsTold) {
    TouchBoardModel board("KP120");
    for (const char* const line : {"noise 1 60", "noise 2 0", "lift 2 50", "touch 2"}) {
        ExecuteLine(board, line);
    }
    for (const std::uint32_t command : {0x1C2u, 0x2C2u}) {
        board.WriteLedSetup({command, 0, 0});
    }
    std::uint32_t loudest = 0;
    for (unsigned i = 0; i < 200; ++i) {
        const DiagnosticsWords words = board.DiagnosticsReport();
        loudest = std::max(loudest, words[4]);
        EXPECT_EQ((std::array{0u, 50u}), (std::array{words[5] >> 8, words[8]}));
        EXPECT_LE(words[1] >> 8, 120u);
    }
    EXPECT_GT(loudest, 50u);
    EXPECT_LE(loudest, 60u);
    ExecuteLine(board, "lift 2 auto");
    EXPECT_EQ(160u, board.DiagnosticsReport()[8]);
    for (const char* const line : {"noise 5 1", "noise 1 101", "lift 0 1", "lift 1 10001", "lift 1"}) {
        EXPECT_THROW(ExecuteLine(board, line), std::invalid_argument) << line;
    }
}

TEST(TouchBoardModel, ReportsWaitForASlowHostAndFollowAtTwiceTheRate) {
    TouchBoardModel board("KP480");
    board.WriteLedSetup({0x1C2, 0, 0});
    board.Advance(0);
    board.Advance(PERIOD, false);
    EXPECT_TRUE(board.TakeReports().empty());
    EXPECT_FALSE(board.NextReportTime());
    // In half periods: those that were due at 2, 4 and 6.
    for (const auto& [time, made] : {std::pair{6, 1u}, {6, 0u}, {7, 1u}, {7, 0u}, {8, 1u}}) {
        board.Advance(PERIOD / 2 * time);
        EXPECT_EQ(made, board.TakeReports().size()) << time;
    }
    board.Advance(PERIOD * 20, false);  // for too long
    EXPECT_EQ(16u, board.MissedReports());
    EXPECT_TRUE(board.TakeReports().empty());
}

TEST(TouchBoardModel, AnswersAreAsLateAsTheyAreTold) {
    TouchBoardModel board("KP480");
    ExecuteLine(board, "late 300");
    board.WriteLedSetup({0xAC, 0, 0});
    board.Advance(PERIOD);
    board.WriteLedSetup({0x100C1, 0, 0});
    board.Advance(2 * PERIOD);
    board.Advance(PERIOD + 300'000'000 - 1);
    EXPECT_EQ(0u, board.CurrentReport(ReportId::IDENTITY).words[1]);
    EXPECT_TRUE(board.TakeReports().empty());
    EXPECT_EQ(PERIOD + 300'000'000, board.NextReportTime());
    for (const auto& [time, id] :
         {std::pair{PERIOD, ReportId::IDENTITY}, {2 * PERIOD, ReportId::DIAGNOSTICS}}) {
        board.Advance(time + 300'000'000);
        const auto reports = board.TakeReports();
        ASSERT_EQ(1u, reports.size());
        EXPECT_EQ(id, reports[0].id);
    }
}

TEST(TouchBoardModel, AnEchoingBoardRepeatsItsLevelsAfterEveryWrite) {
    TouchBoardModel board("KP480");
    board.SetTouched(3, true);
    const auto levels = board.TakeReports().front().words;
    ExecuteLine(board, "echo on");
    board.WriteLedSetup({0x1C2, 0, 0});
    board.WriteLeds({1});
    const auto reports = board.TakeReports();
    ASSERT_EQ(2u, reports.size());
    for (const InputReport& report : reports) {
        EXPECT_EQ(levels, report.words);
    }
}

TEST(TouchBoardModel, OnlyAForgetfulBoardLosesItsSettingsWithItsPower) {
    const std::string fresh = TouchBoardModel("KP480").DescribeState();
    TouchBoardModel board("KP480");
    for (const std::uint32_t command : {0x002803A5u, 0x000700A9u, 0x1C2u}) {
        board.WriteLedSetup({command, 0, 0});
    }
    const std::string configured = board.DescribeState();
    board.Connect();
    EXPECT_EQ(configured, board.DescribeState());
    ExecuteLine(board, "forget");
    board.Connect();
    EXPECT_EQ(fresh, board.DescribeState());
    board.Advance(0);
    EXPECT_FALSE(board.NextReportTime());
}

TEST(TouchBoardModel, SmallBoardsMarkTheirTouchesInOtherBits) {
    TouchBoardModel board("KP120");
    EXPECT_EQ(32u, board.SetupReport()[2]);
    for (const unsigned button : {1u, 2u, 3u, 4u}) {
        board.SetTouched(button, true);
    }
    EXPECT_EQ(1u << 9 | 1u << 3 | 1u << 5 | 1u << 4, board.DiagnosticsReport()[0]);
    EXPECT_THROW(board.SetTouched(5, true), std::invalid_argument);
}

TEST(TouchBoardLines, ActOnTheBoardOrSayWhyNot) {
    TouchBoardModel board("KP480");
    for (const char* line : {"touch 3", "gpio 2 0", "gpio 0 1", "setup count=4 format=48 marker=0xA4 28=9"}) {
        ExecuteLine(board, line);
    }
    EXPECT_EQ((std::vector<std::uint32_t>{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
              board.CurrentReport(ReportId::GPIO).words);
    const DiagnosticsWords odd = board.SetupReport();
    EXPECT_EQ((std::array{48u, 0x04A4u, 0xA7A6u, 9u}), (std::array{odd[2], odd[3], odd[8], odd[28]}));
    for (const char* line : {"touch 12", "touch", "gpio 11 1", "gpio 1 2", "setup 29=1",
                             "setup 1=", "rate -1", "late 60001", "echo", "dance"}) {
        EXPECT_THROW(ExecuteLine(board, line), std::invalid_argument) << line;
    }
    EXPECT_EQ(odd, board.SetupReport());
}

}  // namespace
}  // namespace VirtualPlayer
