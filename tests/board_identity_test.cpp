#include "lib/hardware/board_identity.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>

using namespace ExternalControl::Impl;

TEST(BoardIdentity, AnswersNameTheModelAndItsProperties) {
    struct Case {
        std::uint32_t boardCode, headerValue;
        std::optional<std::uint32_t> model;
        const char* properties;
    };
    const Case cases[] = {
        {0x77, 20, 120, "hardware=KP120;header=no;revision=A;rheader=20"},
        {0x77, 21, 121, "hardware=KP120;header=yes;revision=A;rheader=21"},
        {0x55, 92, 481, "hardware=KP480;header=no;revision=B;rheader=92"},
        {0x00, 0, std::nullopt, ""},
        {0x00, 21, 480, "hardware=KP480;header=no;revision=A;rheader=21"},
        {0x01, 90, 480, "hardware=KP480;header=no;revision=A;rheader=90"},
        {0x01, 21, MODEL_UNKNOWN, ""},
        {0x55, 0xFFFFFFFF, 481, "hardware=KP480;header=no;revision=B;rheader=-1"},
    };
    for (const Case& c : cases) {
        const auto model = DecodeBoardModel(c.boardCode, c.headerValue);
        EXPECT_EQ(model, c.model) << c.boardCode << " " << c.headerValue;
        EXPECT_EQ(FormatBoardProperties(model.value_or(MODEL_UNKNOWN), c.headerValue), c.properties);
    }
}
