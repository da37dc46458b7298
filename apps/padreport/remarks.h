#pragma once

// Which buttons differ from the others of their board, and how.
//
// - Noisy: the unit (figures.h) of one of its values is more than 3 times the median of the other buttons'
//   units.
// - Weak: its signal rises with a touch by less than 0.6 times the median of the other buttons' rises.
//
// There must be at least two others to compare with.

#include <cstddef>
#include <string>
#include <vector>

#include "apps/padreport/figures.h"

namespace padreport {

/// That a button differs from the others.
struct Remark {
    unsigned button = 0;    ///< its number
    const char* what = "";  ///< "noisy", "weak"
    std::string text;       ///< a clause with the figures
};

/// @param buttons all buttons of the board
/// @param signal index of the value, from 0
/// @return in the order of the buttons
std::vector<Remark> MakeRemarks(const std::vector<ButtonFigures>& buttons, unsigned signal);

}  // namespace padreport
