#include "lib/platform/string_operations.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/message_of.h"

namespace {

TEST(Strvprintf, KeepsEveryLengthUpToItsLimit) {
    for (const std::size_t length : {0u, 255u, 256u, 3999u, 4000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(strprintf("%s", text.c_str()), text);
    }
    EXPECT_EQ(strprintf("%s", std::string(5000, 'x').c_str()), std::string(4000, 'x'));
    EXPECT_EQ(strprintf("%d-%s-%04hx", -7, "a", static_cast<unsigned short>(0xAB)), "-7-a-00ab");
}

TEST(AsciiCase, FoldsOnlyTheLettersAToZ) {
    EXPECT_EQ(strata::ToLowerAscii("AZ[\xC4@"), "az[\xC4@");
    EXPECT_TRUE(strata::EqualIgnoringAsciiCase("TouchBoard-0-GPIO", "touchboard-0-gpio"));
    EXPECT_FALSE(strata::EqualIgnoringAsciiCase("vantora", "vantora "));
    EXPECT_FALSE(strata::EqualIgnoringAsciiCase("[", "{"));
    const strata::LessIgnoringAsciiCase less;
    EXPECT_TRUE(less("abc", "ABCD"));
    EXPECT_FALSE(less("ABC", "abc"));
    EXPECT_TRUE(less("a", "\xC4"));
}

TEST(Hexadecimal, DecodesWhatItEncodesAndRejectsTheRest) {
    EXPECT_EQ(strata::EncodeHexadecimal({0x00, 0xAF, 0x19}), "00af19");
    EXPECT_EQ(strata::DecodeHexadecimal("00aF19"), (std::vector<std::uint8_t>{0x00, 0xAF, 0x19}));
    EXPECT_EQ(MessageOf([] { strata::DecodeHexadecimal("0"); }), "Invalid hexadecimal string length");
    EXPECT_THROW(strata::DecodeHexadecimal("0g"), std::invalid_argument);
}

TEST(ParseVersion, TakesNumbersBetweenSinglePoints) {
    EXPECT_EQ(strata::ParseVersion("7.1.92"), (std::vector<unsigned>{7, 1, 92}));
    EXPECT_EQ(MessageOf([] { strata::ParseVersion("7.65536"); }), "Version string has out of range number");
    for (const char* text : {"", "7.", ".7", "7.a", "7..1"}) {
        EXPECT_THROW(strata::ParseVersion(text), std::invalid_argument) << text;
    }
}

}  // namespace
