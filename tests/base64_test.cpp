#include "lib/platform/base64.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

TEST(Base64, DecodesWhatItEncodesAndRejectsTheRest) {
    const std::pair<std::vector<std::uint8_t>, std::string> base64Cases[] = {
        {{}, ""},
        {{0xFF}, "/w=="},
        {{0, 1}, "AAE="},
        {{0, 1, 2}, "AAEC"},
        {{0xFB, 0xEF, 0xBE, 0x3E}, "++++Pg=="}};
    for (const auto& [bytes, text] : base64Cases) {
        EXPECT_EQ(strata::base64::Encode(bytes), text);
        EXPECT_EQ(strata::base64::Decode(text), bytes);
    }
    for (const char* text : {"A", "AAA", "A===", "A*==", "A=A="}) {
        EXPECT_THROW(strata::base64::Decode(text), std::invalid_argument) << text;
    }
}

}  // namespace
