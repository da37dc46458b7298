// The command line: nothing that is accepted lies outside of what the usage text allows.
// Input: one argument a line.

#include "apps/padtune/command_line.h"

#include <cstdlib>

#include "apps/padtune/touch_board_commands.h"
#include "lib/platform/string_splitter.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

/// Every button of a range becomes an entry, and a range of millions is accepted. Here it would only exhaust
/// the memory.
bool IsHugeRange(const std::string& text) {
    constexpr std::int64_t LARGEST = 1000;
    const StringSplitter pieces(text, "-");
    if (pieces.size() != 2) {
        return false;
    }
    // Buttons are 32-bit numbers, whatever is left of the text's.
    const auto first = static_cast<std::int32_t>(std::strtol(pieces[0].c_str(), nullptr, 10));
    const auto last = static_cast<std::int32_t>(std::strtol(pieces[1].c_str(), nullptr, 10));
    return std::int64_t{last} - first > LARGEST;
}

/// Options take a range as the whole argument, or as the first of several pieces.
bool HasHugeRange(const std::string& argument) {
    const StringSplitter pieces(argument, ",");
    return IsHugeRange(argument) || (pieces.size() > 0 && IsHugeRange(pieces[0]));
}

void CheckSwitches(const std::vector<ButtonSwitch>& switches) {
    for (const ButtonSwitch& entry : switches) {
        REQUIRE(entry.button >= 1 && entry.disable <= 1);
    }
}

void CheckCommand(const ConfigCommand& entry) {
    REQUIRE(entry.extra == 0);
    if (entry.command != COMMAND_FINGER_TH) {
        REQUIRE(entry.command == COMMAND_LED_BITS || FindParameterNames(entry.command).reportName != nullptr);
        REQUIRE(entry.button == 0 && static_cast<std::int32_t>(entry.value) >= 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text = FuzzInput(data, size).TakeRest();
    std::vector<const char*> arguments{"padtune"};
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        if (end < text.size()) {
            text[end] = '\0';
        }
        arguments.push_back(text.c_str() + start);
        if (HasHugeRange(arguments.back())) {
            return 0;
        }
        start = end + 1;
    }

    const auto settings = ReadCommandLine(static_cast<int>(arguments.size()), arguments.data());
    if (!settings) {
        return 0;
    }
    REQUIRE(arguments.size() % 2 == 1);
    REQUIRE(settings->timeoutSeconds >= 0 && settings->pauseMilliseconds >= 0);
    CheckSwitches(settings->buttonSwitches);
    CheckSwitches(settings->ledSwitches);
    for (const ConfigCommand& entry : settings->configCommands) {
        CheckCommand(entry);
    }
    return 0;
}
