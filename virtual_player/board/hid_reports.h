#pragma once

// The HID side of a board: its report descriptor, and the bytes of its reports. Both come from one table of
// fields, so that they cannot disagree.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "virtual_player/board/board.h"

namespace VirtualPlayer {

enum class Direction { INPUT, OUTPUT };

/// A row of values, all of the same width. Fields of the same report and direction follow each other in the
/// report in the order of the table, in which they must be neighbours.
struct HidField {
    std::uint8_t report;
    Direction direction;
    std::uint16_t usagePage;
    std::uint16_t firstUsage;
    std::uint16_t count;
    std::uint8_t bits;  ///< of a value: 1 or 32; of another device's anything up to 32
};

/// @return one application collection, usage 1 of the page, with all fields
Bytes HidReportDescriptor(std::uint16_t applicationPage, std::span<const HidField> fields);

/// @return the length of a report, its number included where it has one; 0 if there is no such report
std::size_t ReportLength(std::span<const HidField> fields, std::uint8_t report, Direction direction);

/// @param words  one for each value of the report's input fields
/// @return the report as it goes over the bus, report id first
Bytes PackReport(std::span<const HidField> fields, std::uint8_t report, std::span<const std::uint32_t> words);

/// @param bytes  an output report from the host, report id first
/// @return one word for each value; none if there is no such report or its length is wrong
std::optional<std::vector<std::uint32_t>> UnpackReport(std::span<const HidField> fields, const Bytes& bytes);

}  // namespace VirtualPlayer
