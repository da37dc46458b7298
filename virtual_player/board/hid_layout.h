#pragma once

// Which reports a device has, read from its report descriptor: the way back from a descriptor to fields, for
// devices that others have made.

#include <cstdint>
#include <vector>

#include "virtual_player/board/board.h"
#include "virtual_player/board/hid_reports.h"

namespace VirtualPlayer {

struct HidLayout {
    std::uint32_t application = 0;  ///< usage page and usage of the first collection
    std::vector<HidField> fields;   ///< inputs and outputs in the order of the descriptor, padding included
};

/// @throws std::invalid_argument with what is wrong
HidLayout ParseHidReportDescriptor(const Bytes& descriptor);

}  // namespace VirtualPlayer
