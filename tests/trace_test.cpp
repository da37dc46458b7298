// Messages and trace sinks.

#include "lib/platform/trace.h"

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

TEST(Messages, RenderLikePrintfWithTheErrorsText) {
    EXPECT_EQ(strata::RenderMessage(ENOENT, "poll error %d: %m\n", 2),
              "poll error 2: No such file or directory\n");
    EXPECT_EQ(strata::RenderMessage(ENOENT, "100%%m %s%%", "%m"), "100%m %m%");
}

TEST(Messages, SayWhenTheyCannotBeRendered) {
    const std::string text = strata::RenderMessage(0, "%d and %d", 1);
    EXPECT_EQ(text.rfind("Message '%d and %d' threw '", 0), 0u) << text;
    EXPECT_EQ(text.substr(text.size() - 2), "'\n");
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
    ASSERT_EQ(trace.pieces.size(), 3u);
    EXPECT_EQ(trace.pieces[0], "label\n");
    EXPECT_EQ(trace.pieces[1], fmt::sprintf("%p: ", static_cast<const void*>(data.data())) +
                                   "30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n");
    EXPECT_EQ(trace.pieces[2], fmt::sprintf("%p: ", static_cast<const void*>(data.data() + 16)) +
                                   "01 7f 7e 20 " + std::string(36, ' ') + "..~ \n");
}

TEST(HexDump, KeepsALabelsNewlineAndTakesNoDataAtAll) {
    RecordingTrace trace;
    trace.HexDump("100%\n", nullptr, 0);
    trace.HexDump("", nullptr, 0);
    EXPECT_EQ(trace.pieces, (std::vector<std::string>{"100%\n", ""}));
}

}  // namespace
