// The board that plays a recording. Input: the length of the packed recording (two bytes) and the recording;
// then what happens to the board, one step after the other, each with its number first:
//   0 time passes: microseconds (four bytes), whether the host has read everything
//   1 the host writes: the length, the report        2 the host asks for a report: its number
//   3 faster   4 slower   5 in a loop   6 the cable is out and in

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>

#include "tests/fuzz/fuzz_input.h"
#include "virtual_player/board/recording.h"
#include "virtual_player/board/replay_board.h"

namespace {

using namespace VirtualPlayer;

Bytes TakeReport(FuzzInput& input, std::size_t length) {
    Bytes bytes(length + 1);  // never without an address
    input.TakeBytes(bytes.data(), length);
    bytes.pop_back();
    return bytes;
}

std::optional<Recording> TakeRecording(FuzzInput& input) {
    const Bytes packed = TakeReport(input, input.Take<std::uint16_t>());
    try {
        return UnpackRecording(packed);
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

void CheckRecording(const Recording& recording) {
    REQUIRE(!recording.reports.empty());
    REQUIRE(std::is_sorted(recording.reports.begin(), recording.reports.end(),
                           [](const auto& a, const auto& b) { return a.time < b.time; }));
    REQUIRE(std::none_of(recording.reports.begin(), recording.reports.end(),
                         [](const auto& report) { return report.bytes.empty(); }));
}

void TakeStep(FuzzInput& input, ReplayBoard& board, std::int64_t& now) {
    switch (input.Take<std::uint8_t>() % 7) {
        case 0: {
            now += std::int64_t{input.Take<std::uint32_t>()} * 1000;
            const bool hasRead = input.Take<std::uint8_t>() != 0;
            board.Advance(now, hasRead);
            REQUIRE(hasRead || !board.NextReportTime() || *board.NextReportTime() > now);
            break;
        }
        case 1:
            board.WriteReport(TakeReport(input, input.Take<std::uint8_t>()));
            break;
        case 2: {
            const auto report = board.CurrentReport(input.Take<std::uint8_t>());
            REQUIRE(!report || !report->empty());
            break;
        }
        case 3:
            board.ExecuteLine("speed 1000");
            break;
        case 4:
            board.ExecuteLine("speed 0.01");
            break;
        case 5:
            board.ExecuteLine("loop on");
            break;
        case 6:
            board.Connect();
            REQUIRE(board.TakeReports().empty());
            break;
    }
}

void Play(FuzzInput& input, const Recording& recording) {
    std::optional<ReplayBoard> board;
    try {
        board.emplace(recording);
    } catch (const std::invalid_argument&) {
        return;
    }
    std::int64_t now = 0;
    while (!input.IsEmpty()) {
        TakeStep(input, *board, now);
        // Nothing is sent that was not recorded.
        for (const Bytes& report : board->TakeReports()) {
            REQUIRE(std::any_of(recording.reports.begin(), recording.reports.end(),
                                [&](const auto& recorded) { return recorded.bytes == report; }));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    if (const auto recording = TakeRecording(input)) {
        CheckRecording(*recording);
        Play(input, *recording);
    }
    return 0;
}
