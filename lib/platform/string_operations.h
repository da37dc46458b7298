#pragma once

// String helpers: printf-style formatting into a string, comparison that folds ASCII case only (independent
// of the locale), hexadecimal text and version numbers (these two for the player's other software). All may
// be called from any thread.

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Formats in the manner of vprintf. A result of more than 4000 characters is cut to 4000.
[[gnu::format(printf, 1, 0)]] std::string strvprintf(const char* format, va_list arguments);

/// Formats in the manner of printf, with the limit of strvprintf.
[[gnu::format(printf, 1, 2)]] std::string strprintf(const char* format, ...);

namespace strata {

/// Folds the letters A to Z to lower case; all other bytes stay as they are.
std::string ToLowerAscii(std::string text);

/// Whether two texts are equal but for the case of the letters A to Z.
bool EqualIgnoringAsciiCase(std::string_view left, std::string_view right);

/// Orders texts without regard to the case of the letters A to Z; a prefix of another text sorts first.
struct LessIgnoringAsciiCase {
    using is_transparent = void;  ///< lets containers look up any kind of text
    /// Whether left comes before right.
    bool operator()(std::string_view left, std::string_view right) const;
};

/// Two lower-case digits for each byte.
std::string EncodeHexadecimal(const std::vector<std::uint8_t>& bytes);

/// @param text pairs of hexadecimal digits of either case
/// @throws std::invalid_argument for an odd length ("Invalid hexadecimal string length") or another character
std::vector<std::uint8_t> DecodeHexadecimal(std::string_view text);

/// Reads a version such as "7.1.92".
/// @param text decimal numbers of 0 to 65535, separated by dots
/// @return the numbers in order
/// @throws std::invalid_argument when a number is missing or has another character
/// @throws std::out_of_range "Version string has out of range number" above 65535
std::vector<unsigned> ParseVersion(std::string_view text);

}  // namespace strata
