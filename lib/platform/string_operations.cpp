#include "lib/platform/string_operations.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "lib/platform/assertion.h"

namespace {

constexpr int STACK_BUFFER_SIZE = 256;
constexpr int MAX_RESULT_LENGTH = 4000;

constexpr char FoldAsciiCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

unsigned HexadecimalDigit(char c) {
    const char folded = FoldAsciiCase(c);
    if (IsDigit(folded)) {
        return static_cast<unsigned>(folded - '0');
    }
    if (folded < 'a' || folded > 'f') {
        throw std::invalid_argument("Invalid hexadecimal digit");
    }
    return static_cast<unsigned>(folded - 'a') + 10;
}

}  // namespace

std::string strvprintf(const char* format, va_list arguments) {
    constexpr const char* FILE_TEXT = "lib/platform/string_operations.cpp";
    constexpr const char* FUNCTION_TEXT = "std::__cxx11::string strvprintf(const char*, va_list)";

    char stackBuffer[STACK_BUFFER_SIZE];
    va_list copy;
    va_copy(copy, arguments);
    const int length = vsnprintf(stackBuffer, sizeof stackBuffer, format, copy);
    va_end(copy);
    if (length < 0) {
        PLATFORM_ASSERT_AT(FILE_TEXT, 241, FUNCTION_TEXT, false);
    }
    if (length < STACK_BUFFER_SIZE) {
        return std::string(stackBuffer, static_cast<std::size_t>(length));
    }

    std::string text(static_cast<std::size_t>(std::min(length, MAX_RESULT_LENGTH)), '\0');
    va_copy(copy, arguments);
    const int secondLength = vsnprintf(text.data(), text.size() + 1, format, copy);
    va_end(copy);
    if (secondLength < 0) {
        PLATFORM_ASSERT_AT(FILE_TEXT, 270, FUNCTION_TEXT, false);
    }
    // An argument that another thread writes to may be shorter by now.
    text.resize(std::min(text.size(), static_cast<std::size_t>(secondLength)));
    return text;
}

std::string strprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = strvprintf(format, arguments);
    va_end(arguments);
    return text;
}

namespace strata {

std::string ToLowerAscii(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), FoldAsciiCase);
    return text;
}

bool EqualIgnoringAsciiCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return FoldAsciiCase(a) == FoldAsciiCase(b); });
}

bool LessIgnoringAsciiCase::operator()(std::string_view left, std::string_view right) const {
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char a, char b) {
                                            return static_cast<unsigned char>(FoldAsciiCase(a)) <
                                                   static_cast<unsigned char>(FoldAsciiCase(b));
                                        });
}

std::string EncodeHexadecimal(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += strprintf("%02x", byte);
    }
    return text;
}

std::vector<std::uint8_t> DecodeHexadecimal(std::string_view text) {
    if (text.size() % 2 != 0) {
        throw std::invalid_argument("Invalid hexadecimal string length");
    }
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(
            static_cast<std::uint8_t>(HexadecimalDigit(text[i]) << 4 | HexadecimalDigit(text[i + 1])));
    }
    return bytes;
}

std::vector<unsigned> ParseVersion(std::string_view text) {
    constexpr unsigned MAX_NUMBER = 65535;
    std::vector<unsigned> numbers;
    std::size_t position = 0;
    do {
        const std::size_t start = position;
        unsigned number = 0;
        for (; position < text.size() && IsDigit(text[position]); ++position) {
            number = number * 10 + static_cast<unsigned>(text[position] - '0');
            if (number > MAX_NUMBER) {
                throw std::out_of_range("Version string has out of range number");
            }
        }
        const bool atEnd = position == text.size();
        if (position == start || (!atEnd && text[position] != '.')) {
            throw std::invalid_argument("Version string has no number where one belongs");
        }
        numbers.push_back(number);
    } while (position++ < text.size());
    return numbers;
}

}  // namespace strata
