#include "lib/platform/base64.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr std::string_view ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t BYTES_PER_GROUP = 3;
constexpr std::size_t DIGITS_PER_GROUP = 4;
constexpr unsigned BITS_PER_DIGIT = 6;

}  // namespace

namespace strata::base64 {

std::string Encode(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (std::size_t start = 0; start < bytes.size(); start += BYTES_PER_GROUP) {
        const std::size_t present = std::min(BYTES_PER_GROUP, bytes.size() - start);
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < BYTES_PER_GROUP; ++i) {
            group = group << 8 | (i < present ? bytes[start + i] : 0);
        }
        for (std::size_t digit = 0; digit < DIGITS_PER_GROUP; ++digit) {
            const std::size_t shift = BITS_PER_DIGIT * (DIGITS_PER_GROUP - 1 - digit);
            text += digit <= present ? ALPHABET[group >> shift & 0x3F] : '=';
        }
    }
    return text;
}

std::vector<std::uint8_t> Decode(std::string_view text) {
    if (text.size() % DIGITS_PER_GROUP != 0) {
        throw std::invalid_argument("Invalid base64 string length");
    }
    const std::size_t digits = text.find_last_not_of('=') + 1;
    if (text.size() - digits > 2) {
        throw std::invalid_argument("Invalid base64 padding");
    }

    std::vector<std::uint8_t> bytes;
    std::uint32_t group = 0;
    unsigned bits = 0;
    for (const char c : text.substr(0, digits)) {
        const std::size_t value = ALPHABET.find(c);
        if (value == std::string_view::npos) {
            throw std::invalid_argument("Invalid base64 character");
        }
        group = group << BITS_PER_DIGIT | static_cast<std::uint32_t>(value);
        bits += BITS_PER_DIGIT;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<std::uint8_t>(group >> bits & 0xFF));
        }
    }
    return bytes;
}

}  // namespace strata::base64
