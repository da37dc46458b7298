#pragma once

// The board's HID side: its report descriptor, and the bytes of its reports. Both come from one table, so
// that they cannot disagree.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "virtual_player/board/touch_board_model.h"

namespace VirtualBoard {

using Bytes = std::vector<std::uint8_t>;

/// @param leftOut a report that this board does not have
/// @return one application collection with a field for each report
Bytes HidReportDescriptor(std::optional<ReportId> leftOut);

/// @param name the host's name for the report's port: "GPIO", "DIAGNOSTICS", "LED-SETUP" or "LED"
/// @throws std::invalid_argument for any other name
ReportId FindReport(const std::string& name);

/// @return the report as it goes over the bus, report id first
Bytes PackReport(const InputReport& report);

/// Takes an output report from the host. The report id is the first byte.
/// @return false if the board has no such report or its length is wrong
bool WriteReport(TouchBoardModel& board, const Bytes& report);

}  // namespace VirtualBoard
