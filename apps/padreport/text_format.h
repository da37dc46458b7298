#pragma once

// How figures look in tables and in CSV: what is not known is "-" in the former, and empty in the latter.

#include <cstdint>
#include <optional>
#include <string>

#include "lib/platform/string_operations.h"

namespace padreport {

/// Stands for a figure that there is not.
constexpr const char* NOT_KNOWN = "-";

/// @return the number in decimal digits
inline std::string FormatCount(std::uint64_t count) {
    return std::to_string(count);
}

/// @param number to be rounded
/// @param digits after the decimal point
/// @return without a sign where nothing but zeros is left
inline std::string FormatDecimal(double number, int digits = 1) {
    const std::string text = strprintf("%.*f", digits, number);
    return text.find_first_not_of("-0.") == std::string::npos && text.front() == '-' ? text.substr(1) : text;
}

/// @return seconds with three decimals
inline std::string FormatSeconds(std::int64_t milliseconds) {
    return strprintf("%.3f", static_cast<double>(milliseconds) / 1000);
}

/// @return the button as the log calls it, "BT3"
inline std::string FormatButton(unsigned button) {
    return "BT" + std::to_string(button);
}

/// @return "1 run", "2 runs"
inline std::string FormatNumberOf(std::uint64_t count, const std::string& what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

}  // namespace padreport
