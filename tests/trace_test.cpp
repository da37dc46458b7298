// Messages and trace sinks.

#include "lib/platform/trace.h"
#include "lib/platform/message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

class RecordingTrace : public BaseTrace {
public:
    void Emit(const std::string& text) override { pieces.push_back(text); }
    void Flush() override {}
    std::vector<std::string> pieces;
};

TEST(Messages, RenderLikePrintfWithTheErrorsTextOrSayWhyNot) {
    EXPECT_EQ(strata::RenderMessage(ENOENT, "poll error %d: %m\n", 2),
              "poll error 2: No such file or directory\n");
    EXPECT_EQ(strata::RenderMessage(ENOENT, "100%%m %s%%", "%m"), "100%m %m%");
    EXPECT_THAT(strata::RenderMessage(0, "%d and %d", 1),
                testing::MatchesRegex("Message '%d and %d' threw '.+'\n"));
}

TEST(Messages, GoToStandardErrorAsTheyAre) {
    testing::internal::CaptureStderr();
    errno = EIO;
    PLATFORM_MESSAGE("a %s: %m\n", "b");
    StderrTrace().Emit("no newline %d");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a b: Input/output error\nno newline %d");
}

TEST(HexDump, AlignsTheCharacterColumnOfAShortLastLine) {
    const std::string data = "0123456789abcdef\x01\x7F~ ";
    RecordingTrace trace;
    trace.HexDump("label", data.data(), data.size());
    trace.HexDump("100%\n", nullptr, 0);
    trace.HexDump("", nullptr, 0);
    const auto address = [&](int offset) {
        return fmt::sprintf("%p: ", static_cast<const void*>(data.data() + offset));
    };
    EXPECT_EQ(
        trace.pieces,
        (std::vector<std::string>{
            "label\n", address(0) + "30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n",
            address(16) + "01 7f 7e 20 " + std::string(36, ' ') + "..~ \n", "100%\n", ""}));
}

}  // namespace
