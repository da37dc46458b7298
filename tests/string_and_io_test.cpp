// Strings, encodings, and reads and writes of an exact length.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "lib/platform/base64.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/string_splitter.h"
#include "lib/platform/unique_fd.h"

namespace {

template <class Call>
std::string MessageOf(Call call) {
    try {
        call();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "no exception";
}

TEST(StringSplitter, DropsEmptyPieces) {
    const std::tuple<const char*, const char*, std::vector<std::string>> cases[] = {
        {"3-", "-", {"3"}}, {"-3", "-", {"3"}}, {"1,,2", ",", {"1", "2"}}, {"a=b;c", ";=", {"a", "b", "c"}},
        {"--", "-", {}},    {"", "-", {}},      {"whole", "-", {"whole"}}};
    for (const auto& [text, separators, pieces] : cases) {
        const StringSplitter splitter(text, separators);
        ASSERT_EQ(splitter.size(), pieces.size()) << text;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            EXPECT_EQ(splitter[i], pieces[i]) << text;
        }
    }
}

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

TEST(Encodings, DecodeWhatTheyEncodeAndRejectTheRest) {
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

TEST(ExactIo, GathersPiecesAndSaysWhyItCannot) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const strata::UniqueFd readEnd(ends[0]);
    strata::UniqueFd writeEnd(ends[1]);

    write_all_throw(writeEnd.Get(), "ab", 2);
    write_all_throw(writeEnd.Get(), "cdef", 4);
    char buffer[24] = {};
    read_all_throw(readEnd.Get(), buffer, 5);
    EXPECT_STREQ(buffer, "abcde");

    writeEnd.Reset();
    EXPECT_EQ(MessageOf([&] { read_all_throw(readEnd.Get(), buffer, sizeof buffer); }),
              "Input/output error (5)");
    EXPECT_EQ(ErrnoException(5).GetErrno(), 5);
    EXPECT_EQ(MessageOf([&] { read_all_throw(-1, buffer, 1); }), "read_all_throw: Bad file descriptor (9)");
    EXPECT_EQ(MessageOf([] { write_all_throw(-1, "x", 1); }), "Bad file descriptor (9)");
}

TEST(ExactIo, ReadsAWholeFileOrNamesIt) {
    const std::string path = testing::TempDir() + "read_file_throw";
    const std::string content = std::string(9000, 'x') + '\0' + "end";
    std::ofstream(path) << content;
    EXPECT_EQ(read_file_throw(path), content);
    std::remove(path.c_str());
    EXPECT_EQ(MessageOf([&] { read_file_throw(path); }), path + ": No such file or directory (2)");
}

}  // namespace
