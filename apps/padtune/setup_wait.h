#pragma once

// The wait for the setup that the board was asked for.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "apps/padtune/touch_board_reports.h"

/// Waits until the board's setup has been decoded. Main thread.
/// @param deadline when to give up on a board that announced no button, in ticks of getTickCount. A setup of
///        which the count is there is waited for without limit: it follows as soon as its lines are printed,
///        and what holds these up would hold up the end of the run, too.
/// @param sleep called to let time pass; what it throws ends the wait
/// @return the setup; an empty one when only a count of 0 came; nothing when there was no valid one in time
std::optional<BoardSetup> WaitForSetup(TouchBoardReports& reports, std::uint64_t deadline,
                                       const std::function<void(std::chrono::milliseconds)>& sleep);
