#pragma once

// What the place that a report is written to can show.

#include <cstddef>

namespace padreport {

/// The place that a report is written to.
struct Terminal {
    bool isTerminal = false;  ///< and not a file or a pipe
    bool hasColours = false;  ///< whether escape sequences for colours are understood
    std::size_t width = 80;   ///< in characters
    std::size_t height = 24;  ///< in lines
};

/// Looks at standard output now. There are colours on a terminal, unless the environment says NO_COLOR or
/// that the terminal is a dumb one.
Terminal DetectTerminal();

}  // namespace padreport
