#pragma once

// What was recorded of a board, as the launcher hands it over: recording.py reads the text and packs it.

#include <cstdint>
#include <string>
#include <vector>

#include "virtual_player/board/board.h"

namespace VirtualPlayer {

struct RecordedReport {
    std::int64_t time;  ///< nanoseconds since the first one
    Bytes bytes;        ///< the report's number first, where the board numbers them
};

struct Recording {
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::string name;  ///< maker and product
    Bytes descriptor;
    std::vector<RecordedReport> reports;  ///< at least one; times never go back
};

/// Unpacks a recording.
/// @param packed  little-endian: vendor, product (16 bits each), name, report descriptor; then of each report
///                the microseconds (64 bits) and its bytes. Name, descriptor and bytes follow their length
///                (16 bits).
/// @throws std::invalid_argument with what is wrong
Recording UnpackRecording(const Bytes& packed);

/// Reads a file and unpacks it. @throws std::invalid_argument with its name
Recording ReadRecording(const std::string& path);

}  // namespace VirtualPlayer
