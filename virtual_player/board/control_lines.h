#pragma once

// The lines of text that play the part of fingers and test instructions for a touch board.

#include <string>

#include "virtual_player/board/touch_board_model.h"

namespace VirtualPlayer {

/// Does what a line asks of the board:
///   touch BUTTON | release BUTTON | noise BUTTON COUNTS | lift BUTTON COUNTS|auto | gpio PIN 0|1|auto |
///   rate REPORTS_PER_SECOND | numbered | measured | late MILLISECONDS | echo on|off | forget | remember |
///   send-setup | state | setup normal | setup [silent] [count=N] [format=N] [marker=N] [SLOT=N]...
/// A setup line replaces the one before.
/// @return the answer, empty when there is nothing to tell
/// @throws std::invalid_argument with what is wrong; the board is then as before
std::string ExecuteLine(TouchBoardModel& board, const std::string& line);

}  // namespace VirtualPlayer
