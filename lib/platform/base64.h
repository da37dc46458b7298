#pragma once

// Base64 with the standard alphabet and padding, for the player's other software.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace strata::base64 {

/// Encodes bytes. Any thread.
std::string Encode(const std::vector<std::uint8_t>& bytes);

/// Decodes a text. Any thread.
/// @param text padded text without blanks or line ends
/// @throws std::invalid_argument when the length or a character is wrong
std::vector<std::uint8_t> Decode(std::string_view text);

}  // namespace strata::base64
