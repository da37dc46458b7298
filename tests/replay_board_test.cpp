#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "virtual_player/board/hid_reports.h"
#include "virtual_player/board/recording.h"
#include "virtual_player/board/replay_board.h"
#include "virtual_player/board/touch_board_protocol.h"

namespace VirtualPlayer {
namespace {

constexpr std::int64_t MILLISECOND = 1'000'000;
constexpr std::int64_t START = 5'000 * MILLISECOND;

// Other numbers than the virtual touch boards have.
constexpr std::uint8_t GPIO = 7;
constexpr std::uint8_t DIAGNOSTICS = 8;
constexpr std::uint8_t IDENTITY = 9;
constexpr std::uint8_t LED_SETUP = 10;
constexpr HidField FIELDS[] = {
    {GPIO, Direction::INPUT, GPIO_PAGE, 1, 11, 1},
    {DIAGNOSTICS, Direction::INPUT, DIAGNOSTICS_PAGE, 1, 3, 32},
    {IDENTITY, Direction::INPUT, IDENTITY_PAGE, 1, 2, 32},
    {LED_SETUP, Direction::OUTPUT, LED_SETUP_PAGE, 1, 3, 32},
};

Bytes Diagnostics(std::uint32_t value) {
    return PackReport(FIELDS, DIAGNOSTICS, std::vector<std::uint32_t>{0, value, 0});
}

const Bytes SETUP = PackReport(FIELDS, DIAGNOSTICS, std::vector<std::uint32_t>{0xFFFF, 0xC2C2, 16});
const Bytes NO_IDENTITY = PackReport(FIELDS, IDENTITY, std::vector<std::uint32_t>{0, 0});
const Bytes A_KP480 = PackReport(FIELDS, IDENTITY, std::vector<std::uint32_t>{0, 90});
const Bytes LEVELS = {GPIO, 4, 0};

Recording TouchBoardRecording(const std::vector<std::pair<int, Bytes>>& reports) {
    Recording recording{0x084F, 0x0480, "maker board", HidReportDescriptor(0xFF77, FIELDS), {}};
    for (const auto& [milliseconds, report] : reports) {
        recording.reports.push_back({milliseconds * MILLISECOND, report});
    }
    return recording;
}

bool SendCommand(ReplayBoard& board, std::uint8_t command, std::uint8_t mask = 0) {
    return board.WriteReport({LED_SETUP, command, 0, 0, 0, mask, 0, 0, 0, 0, 0, 0, 0});
}

/// Lets time pass at a host that reads at once. @return the reports, with the milliseconds since the start
std::vector<std::pair<int, Bytes>> Play(ReplayBoard& board, int fromMilliseconds, int toMilliseconds) {
    std::vector<std::pair<int, Bytes>> played;
    for (int time = fromMilliseconds; time <= toMilliseconds; ++time) {
        board.Advance(START + time * MILLISECOND, true);
        for (Bytes& report : board.TakeReports()) {
            played.emplace_back(time, std::move(report));
        }
    }
    return played;
}

using Played = std::vector<std::pair<int, Bytes>>;

TEST(ReplayBoard, PlaysAtItsOwnTimesOnceOrInALoop) {
    ReplayBoard board(TouchBoardRecording({{0, Diagnostics(1)}, {100, Diagnostics(2)}, {400, LEVELS}}));
    EXPECT_EQ((Played{{0, Diagnostics(1)}}), Play(board, 0, 50));
    EXPECT_EQ(START + 100 * MILLISECOND, board.NextReportTime());
    EXPECT_EQ((Played{{100, Diagnostics(2)}}), Play(board, 51, 200));
    EXPECT_EQ("", board.ExecuteLine("speed 2"));  // 200 ms are left
    EXPECT_EQ((Played{{300, LEVELS}}), Play(board, 200, 4000));
    EXPECT_EQ(std::nullopt, board.NextReportTime());
    EXPECT_EQ(std::vector<std::string>{"replay ends"}, board.TakeRecords());

    board.ExecuteLine("loop on");
    EXPECT_EQ((Played{{4501, Diagnostics(1)}, {4551, Diagnostics(2)}, {4701, LEVELS}}),
              Play(board, 4001, 4701));
    EXPECT_EQ(std::vector<std::string>{"replay starts over"}, board.TakeRecords());
    EXPECT_EQ("state played=3 of=3", board.ExecuteLine("state"));
    for (const char* const line :
         {"", "speed", "speed 0", "speed nan", "speed 2x", "speed -1", "loop", "touch 1"}) {
        EXPECT_THROW(board.ExecuteLine(line), std::invalid_argument) << line;
    }
}

TEST(ReplayBoard, StandsStillWhileNobodyReads) {
    ReplayBoard board(TouchBoardRecording({{0, Diagnostics(1)}, {40, Diagnostics(2)}, {80, Diagnostics(3)}}));
    board.Advance(START, true);
    EXPECT_EQ(std::vector<Bytes>{Diagnostics(1)}, board.TakeReports());
    board.Advance(START + 40 * MILLISECOND, false);
    EXPECT_EQ(std::nullopt, board.NextReportTime());
    EXPECT_TRUE(board.TakeReports().empty());
    // It is read, as if it had just been sent; from then on what is a little late is made up for.
    EXPECT_EQ((Played{{60'040, Diagnostics(2)}}), Play(board, 60'000, 60'045));
    board.Advance(START + 60'080 * MILLISECOND, false);
    EXPECT_EQ((Played{{60'300, Diagnostics(3)}}), Play(board, 60'300, 60'400));
}

TEST(ReplayBoard, MeasuredValuesComeAfterTheSetupThatWasAskedFor) {
    const Recording recording = TouchBoardRecording({{0, NO_IDENTITY},
                                                     {10, Diagnostics(1)},
                                                     {20, LEVELS},
                                                     {30, SETUP},
                                                     {40, Diagnostics(2)},
                                                     {50, SETUP},
                                                     {90, Diagnostics(3)}});
    ReplayBoard late(recording);
    EXPECT_EQ((Played{{0, NO_IDENTITY}, {10, Diagnostics(1)}, {20, LEVELS}}), Play(late, 0, 900));
    EXPECT_TRUE(SendCommand(late, REQUEST_SETUP));
    EXPECT_EQ((Played{{901, SETUP}, {911, Diagnostics(2)}, {921, SETUP}}), Play(late, 901, 930));
    EXPECT_TRUE(SendCommand(late, REQUEST_SETUP));
    EXPECT_EQ((Played{{931, SETUP}, {961, Diagnostics(3)}}), Play(late, 931, 1000));

    ReplayBoard early(recording);
    EXPECT_EQ((Played{{0, NO_IDENTITY}}), Play(early, 0, 5));
    EXPECT_TRUE(SendCommand(early, REQUEST_SETUP));
    // What the levels are is told, for nobody sends them again.
    EXPECT_EQ((Played{{6, LEVELS}, {6, SETUP}, {16, Diagnostics(2)}}), Play(early, 6, 20));
}

TEST(ReplayBoard, AnswersTheHostWithWhatWasRecorded) {
    ReplayBoard board(TouchBoardRecording({{0, NO_IDENTITY}, {5000, A_KP480}}));
    EXPECT_EQ(0x084F, board.Describe().vendor);
    EXPECT_STREQ("maker board", board.Describe().name);
    EXPECT_TRUE(SendCommand(board, IDENTIFY));
    EXPECT_EQ(std::vector<Bytes>{A_KP480}, board.TakeReports());
    EXPECT_EQ(A_KP480, board.CurrentReport(IDENTITY));
    EXPECT_EQ((Bytes{GPIO, 0, 0}), board.CurrentReport(GPIO));
    EXPECT_EQ(std::nullopt, board.CurrentReport(LED_SETUP));

    // A report with another mask is a write of that mask. A setup was not recorded.
    EXPECT_TRUE(SendCommand(board, IDENTIFY, 1));
    EXPECT_TRUE(SendCommand(board, REQUEST_SETUP, 1));
    EXPECT_TRUE(board.TakeReports().empty());
    EXPECT_FALSE(board.WriteReport({LED_SETUP, 1}));
    EXPECT_FALSE(board.WriteReport({GPIO, 0, 0}));
    EXPECT_EQ((std::vector<std::string>{"output 0a ac 00 00 00 00 00 00 00 00 00 00 00", "identify",
                                        "output 0a ac 00 00 00 01 00 00 00 00 00 00 00",
                                        "output 0a c1 00 00 00 01 00 00 00 00 00 00 00", "setup-request"}),
              board.TakeRecords());
    board.Connect();
    EXPECT_TRUE(SendCommand(board, IDENTIFY));
    EXPECT_EQ(std::vector<Bytes>{A_KP480}, board.TakeReports());
}

TEST(UnpackRecording, RefusesWhatIsCutShort) {
    const Bytes packed = {0x4F, 0x08, 0x80, 0x04, 1, 0, 'n', 2, 0, 5, 6, 0xE8,
                          3,    0,    0,    0,    0, 0, 0,   3, 0, 7, 8, 9};
    const Recording recording = UnpackRecording(packed);
    EXPECT_EQ("n", recording.name);
    EXPECT_EQ((Bytes{5, 6}), recording.descriptor);
    ASSERT_EQ(1u, recording.reports.size());
    EXPECT_EQ(MILLISECOND, recording.reports[0].time);
    EXPECT_EQ((Bytes{7, 8, 9}), recording.reports[0].bytes);
    for (std::size_t length = 0; length < packed.size(); ++length) {
        EXPECT_THROW(
            UnpackRecording(Bytes(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(length))),
            std::invalid_argument);
    }
    EXPECT_THROW(ReadRecording("/nonexistent"), std::invalid_argument);
}

}  // namespace
}  // namespace VirtualPlayer
