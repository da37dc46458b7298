// The command line, as scripts in the field use it.

#include "apps/padtune/command_line.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <list>
#include <string>
#include <utility>
#include <vector>

#include "apps/padtune/touch_board_reports.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/string_splitter.h"

bool operator==(const ButtonSwitch& a, const ButtonSwitch& b) {
    return a.button == b.button && a.disable == b.disable;
}
bool operator==(const ConfigCommand& a, const ConfigCommand& b) {
    return a.command == b.command && a.button == b.button && a.value == b.value && a.extra == b.extra;
}
bool operator==(const LedMaskEntry& a, const LedMaskEntry& b) {
    return a.button == b.button && a.second == b.second && a.mask == b.mask;
}

namespace {

/// @param line what the shell would split at the blanks
RunSettings Parse(const std::string& line) {
    const StringSplitter words("padtune " + line, " ");
    std::list<std::string> texts;  // its strings stay where they are
    std::vector<const char*> arguments;
    for (std::size_t i = 0; i < words.size(); ++i) {
        arguments.push_back(texts.emplace_back(words[i]).c_str());
    }
    return ParseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, HasDefaults) {
    const RunSettings settings = Parse("");
    EXPECT_EQ(settings.timeoutSeconds, 60);
    EXPECT_EQ(settings.pauseMilliseconds, 100);
    EXPECT_TRUE(settings.diagnoseButtons.empty());
    EXPECT_FALSE(OutputDiagnostics);
}

TEST(CommandLine, KeepsOrderAndRepetitions) {
    const RunSettings settings = Parse(
        "--button 3-5 --timeout 7 --button 1 --button 7- --button -3 --timeout +8s --pause abc "
        "--output-diagnostics --button");
    EXPECT_EQ(settings.diagnoseButtons, (std::vector<std::int32_t>{3, 4, 5, 1, 7, -3}));
    EXPECT_EQ(settings.timeoutSeconds, 8);
    EXPECT_EQ(settings.pauseMilliseconds, 0);
    EXPECT_TRUE(OutputDiagnostics);
    OutputDiagnostics = false;
}

TEST(CommandLine, CollectsSwitchesCommandsAndMasks) {
    const RunSettings settings = Parse(
        "--disable-button 3 --enable-button 3 --disable-led 40 --enable-led 1 --led-bits 4 "
        "--noise-threshold 300 --negative-noise-threshold 1 --baseline-threshold 2 --hysteresis 3 "
        "--debounce 4 --low-baseline 5 --finger-threshold 2-4,30 --finger-threshold 0,-1 "
        "--led-mask 1,0,0x3 --led-mask 1-2,5,017 --led-mask 3,-1,ff");
    EXPECT_EQ(settings.buttonSwitches, (std::vector<ButtonSwitch>{{3, 1}, {3, 0}}));
    EXPECT_EQ(settings.ledSwitches, (std::vector<ButtonSwitch>{{40, 1}, {1, 0}}));
    const std::vector<ConfigCommand> commands = {{0xA0, 0, 4, 0},  {0xA6, 0, 300, 0},       {0xA7, 0, 1, 0},
                                                 {0xA8, 0, 2, 0},  {0xA9, 0, 3, 0},         {0xAA, 0, 4, 0},
                                                 {0xAB, 0, 5, 0},  {0xA5, 2, 30, 0},        {0xA5, 3, 30, 0},
                                                 {0xA5, 4, 30, 0}, {0xA5, 0, 0xFFFFFFFF, 0}};
    EXPECT_EQ(settings.configCommands, commands);
    EXPECT_EQ(settings.ledMasks, (std::vector<LedMaskEntry>{{1, 0, 3}, {1, 5, 15}, {2, 5, 15}, {3, -1, 0}}));
}

TEST(CommandLineDeathTest, RejectsWhatItCannotUse) {
    const std::pair<std::string, std::vector<std::string>> rejected[] = {
        {"--unknown", {"1"}},
        {"--time", {"1"}},
        {"--Timeout", {"1"}},
        {"--timeout=1", {"1"}},
        {"--timeout", {"", "-1", "1 stray"}},
        {"--output-diagnostics", {""}},
        {"--pause", {"-1"}},
        {"--enable-button", {"0"}},
        {"--disable-led", {"none"}},
        {"--noise-threshold", {"-1"}},
        {"--led-bits", {"4294967295"}},
        {"--button", {"5-3", "0-2", "2-2", "1-2-3", "-"}},
        {"--finger-threshold", {"2", "2,3,4", "3-2,4"}},
        {"--led-mask", {"1,0", "1,,0", "2-1,0,1"}},
    };
    for (const auto& [option, arguments] : rejected) {
        for (const std::string& argument : arguments) {
            const std::string line = strprintf("%s %s", option.c_str(), argument.c_str());
            EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), Parse(line)), testing::ExitedWithCode(2),
                        "^Usage: padtune\n\n    --timeout <timeout-in-seconds>")
                << line;
        }
    }
}

TEST(CommandLineDeathTest, SaysThatMemoryDoesNotSuffice) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need the address space themselves";
#endif
    constexpr rlimit ADDRESS_SPACE{std::size_t{1} << 30, std::size_t{1} << 30};
    for (const char* const line : {"--button 1-2147483647", "--led-mask 1-400000000,0,1"}) {
        EXPECT_EXIT((setrlimit(RLIMIT_AS, &ADDRESS_SPACE), Parse(line)), testing::ExitedWithCode(2),
                    "^padtune: not enough memory for so many buttons\n$");
    }
}

}  // namespace
