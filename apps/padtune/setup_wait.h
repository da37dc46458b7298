#pragma once

// The wait for the setup that the board was asked for.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "apps/padtune/touch_board_reports.h"

/// Waits until the board's setup has been decoded. Main thread. Once there is a count of buttons, the rest of
/// the setup is waited for without a limit: it follows as soon as the setup's lines are printed. When nobody
/// reads standard error, the run could not end in order anyway, for it would wait for the poll thread.
/// @param reports decodes what the board sends
/// @param deadline when to give up on a board that announced no button, in ticks of getTickCount
/// @param sleep called to let time pass; what it throws ends the wait
/// @return the setup; an empty one when only a count of 0 came; nothing when there was no valid one in time
std::optional<BoardSetup> WaitForSetup(TouchBoardReports& reports, std::uint64_t deadline,
                                       const std::function<void(std::chrono::milliseconds)>& sleep);
