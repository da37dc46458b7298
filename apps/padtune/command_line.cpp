#include "apps/padtune/command_line.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "apps/padtune/touch_board_commands.h"
#include "apps/padtune/touch_board_reports.h"
#include "lib/platform/string_splitter.h"

namespace {

constexpr int EXIT_BAD_COMMAND_LINE = 2;

constexpr const char* USAGE_TEXT =
    "Usage: %s\n"
    "\n"
    "    --timeout <timeout-in-seconds>      (The period the program will run for in seconds)\n"
    "    --pause <delay-in-milliseconds>     (The number of milliseconds to pause after configuration "
    "command)\n"
    "    --enable-button <button-number>     (Enable this button)\n"
    "    --disable-button <button-number>    (Disable this button)\n"
    "    --enable-led <button-number>        (Enable this LED)\n"
    "    --disable-led <button-number>       (Disable this LED)\n"
    "    --button <btn>[-<btn>]              (A button number [or range] to diagnose - buttons 1, 2 & 3 by "
    "default)\n"
    "    --output-diagnostics <title>        (Output diagnostic values to stderr)\n"
    "\n"
    "    --led-bits <bit-count>                     (The number of bits of each buttons LED mask we care "
    "about)\n"
    "    --led-mask <btn>[-<btn>],<secs>,<hex-mask> (Set the hex mask to control this button's [or buttons'] "
    "LED "
    "switching at X seconds [0 means beginning])\n"
    "\n"
    "    --noise-threshold <number>                 (Configuration param)\n"
    "    --negative-noise-threshold <number>        (Configuration param)\n"
    "    --baseline-threshold <number>              (Configuration param)\n"
    "    --hysteresis <number>                      (Configuration param)\n"
    "    --debounce <number>                        (Configuration param)\n"
    "    --low-baseline <number>                    (Configuration param)\n"
    "    --finger-threshold <btn>[-<btn>],<number>  (Configuration param)\n";

/// Reads the leading blanks, sign and digits; text without digits is 0. The scripts in the field rely on it.
std::int32_t ReadNumber(const std::string& text) {
    return static_cast<std::int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

struct ButtonRange {
    std::int32_t first;
    std::int32_t last;
};

/// Reads "<btn>" or "<btn>-<btn>"; nothing when it is neither. The range of one button ("2-2") is refused,
/// deliberately, and the number of a single button is not checked.
std::optional<ButtonRange> ReadButtons(const std::string& text) {
    const StringSplitter pieces(text, "-");
    if (pieces.size() == 1) {
        const std::int32_t button = ReadNumber(text);
        return ButtonRange{button, button};
    }
    if (pieces.size() != 2) {
        return std::nullopt;
    }
    const ButtonRange range{ReadNumber(pieces[0]), ReadNumber(pieces[1])};
    if (range.first < 1 || range.last <= range.first) {
        return std::nullopt;
    }
    return range;
}

/// Appends makeEntry(button) to the list for every button of the range; false without a range.
/// @throws std::bad_alloc when there is not enough memory for the range
template <class Entry, class MakeEntry>
bool AppendForEachButton(std::vector<Entry>& list, const std::optional<ButtonRange>& range,
                         MakeEntry makeEntry) {
    if (!range) {
        return false;
    }
    // Counted in 64 bits: the last button may be the largest number.
    const std::int64_t count = std::int64_t{range->last} - range->first + 1;
    // The memory is asked for at once: a list that grew step by step would take the memory of other programs
    // before it turned out to be too long.
    auto entry = list.size();
    list.resize(entry + static_cast<std::size_t>(count));
    for (std::int64_t button = range->first; button <= range->last; ++button) {
        list[entry++] = makeEntry(static_cast<std::int32_t>(button));
    }
    return true;
}

// The option handlers: each reads its argument into the settings and tells whether it can be used.

bool ReadTimeout(RunSettings& settings, const std::string& argument) {
    settings.timeoutSeconds = ReadNumber(argument);
    return settings.timeoutSeconds >= 0;
}

bool ReadPause(RunSettings& settings, const std::string& argument) {
    settings.pauseMilliseconds = ReadNumber(argument);
    return settings.pauseMilliseconds >= 0;
}

template <std::vector<ButtonSwitch> RunSettings::*LIST, bool DISABLE>
bool ReadSwitch(RunSettings& settings, const std::string& argument) {
    const std::int32_t button = ReadNumber(argument);
    (settings.*LIST).push_back({button, DISABLE});
    return button >= 1;
}

bool ReadDiagnoseButtons(RunSettings& settings, const std::string& argument) {
    return AppendForEachButton(settings.diagnoseButtons, ReadButtons(argument),
                               [](std::int32_t button) { return button; });
}

bool ReadOutputDiagnostics(RunSettings&, const std::string&) {
    OutputDiagnostics = true;
    return true;
}

template <BoardCommand CODE>
bool ReadConfigValue(RunSettings& settings, const std::string& argument) {
    const std::int32_t value = ReadNumber(argument);
    settings.configCommands.push_back({CODE, 0, static_cast<std::uint32_t>(value), 0});
    return value >= 0;
}

bool ReadFingerThreshold(RunSettings& settings, const std::string& argument) {
    const StringSplitter pieces(argument, ",");
    if (pieces.size() != 2) {
        return false;
    }
    const auto value = static_cast<std::uint32_t>(ReadNumber(pieces[1]));
    return AppendForEachButton(settings.configCommands, ReadButtons(pieces[0]), [&](std::int32_t button) {
        return ConfigCommand{COMMAND_FINGER_TH, static_cast<std::uint32_t>(button), value, 0};
    });
}

bool ReadLedMask(RunSettings& settings, const std::string& argument) {
    const StringSplitter pieces(argument, ",");
    if (pieces.size() != 3) {
        return false;
    }
    const std::int32_t second = ReadNumber(pieces[1]);
    // Base 0: 0x1f is hexadecimal, 017 octal, 31 decimal.
    const auto mask = static_cast<std::uint32_t>(std::strtoul(pieces[2].c_str(), nullptr, 0));
    return AppendForEachButton(settings.ledMasks, ReadButtons(pieces[0]), [&](std::int32_t button) {
        return LedMaskEntry{button, second, mask};
    });
}

struct Option {
    const char* name;
    bool (*read)(RunSettings& settings, const std::string& argument);
};

constexpr Option OPTIONS[] = {
    {"--timeout", ReadTimeout},
    {"--pause", ReadPause},
    {"--enable-button", ReadSwitch<&RunSettings::buttonSwitches, false>},
    {"--disable-button", ReadSwitch<&RunSettings::buttonSwitches, true>},
    {"--enable-led", ReadSwitch<&RunSettings::ledSwitches, false>},
    {"--disable-led", ReadSwitch<&RunSettings::ledSwitches, true>},
    {"--button", ReadDiagnoseButtons},
    {"--output-diagnostics", ReadOutputDiagnostics},
    {"--led-bits", ReadConfigValue<COMMAND_LED_BITS>},
    {"--led-mask", ReadLedMask},
    {"--noise-threshold", ReadConfigValue<COMMAND_NOISE_TH>},
    {"--negative-noise-threshold", ReadConfigValue<COMMAND_NEGNOISE_TH>},
    {"--baseline-threshold", ReadConfigValue<COMMAND_BASELINE_TH>},
    {"--hysteresis", ReadConfigValue<COMMAND_HYSTERESIS>},
    {"--debounce", ReadConfigValue<COMMAND_DEBOUNCE>},
    {"--low-baseline", ReadConfigValue<COMMAND_LOWBASELINE>},
    {"--finger-threshold", ReadFingerThreshold},
};

const Option* FindOption(const char* name) {
    for (const Option& option : OPTIONS) {
        if (std::strcmp(option.name, name) == 0) {
            return &option;
        }
    }
    return nullptr;
}

}  // namespace

std::optional<RunSettings> ReadCommandLine(int argc, const char* const* argv) {
    RunSettings settings;
    for (int i = 1; i < argc; i += 2) {
        const Option* const option = FindOption(argv[i]);
        const bool hasArgument = i + 1 < argc;
        if (option == nullptr || !hasArgument || !option->read(settings, argv[i + 1])) {
            return std::nullopt;
        }
    }
    return settings;
}

RunSettings ParseCommandLine(int argc, const char* const* argv) {
    try {
        if (std::optional<RunSettings> settings = ReadCommandLine(argc, argv)) {
            return *std::move(settings);
        }
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "%s: not enough memory for so many buttons\n", argv[0]);
        std::exit(EXIT_BAD_COMMAND_LINE);
    }
    PrintUsage(argv[0]);
}

void PrintUsage(const char* program) {
    std::printf(USAGE_TEXT, program);
    std::exit(EXIT_BAD_COMMAND_LINE);
}
