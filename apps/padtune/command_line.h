#pragma once

// The command line: pairs of an option and its argument, turned into one record that the run reads.

#include <cstdint>
#include <optional>
#include <vector>

/// --enable-button, --disable-button, --enable-led, --disable-led.
struct ButtonSwitch {
    std::int32_t button = 0;   ///< 1-based
    std::uint8_t disable = 0;  ///< 1 for a --disable- option
};

/// A configuration option; becomes one command word.
struct ConfigCommand {
    std::uint32_t command = 0;  ///< a configuration code of BoardCommand
    std::uint32_t button = 0;   ///< 1-based for COMMAND_FINGER_TH, else 0
    std::uint32_t value = 0;    ///< the argument of the command, as it was given
    std::uint32_t extra = 0;    ///< always 0
};

/// One LED mask of the schedule.
struct LedMaskEntry {
    std::int32_t button = 0;  ///< 1-based
    std::int32_t second = 0;  ///< second of the run at which it applies; 0: before the run
    std::uint32_t mask = 0;   ///< what the LED's output is set to
};

/// The parsed command line. Lists keep the order of the command line and its repetitions.
struct RunSettings {
    std::int32_t timeoutSeconds = 60;           ///< length of the timed loop
    std::int32_t pauseMilliseconds = 100;       ///< after each command to the board
    std::vector<std::int32_t> diagnoseButtons;  ///< 1-based; empty: 1 to 4
    std::vector<ButtonSwitch> buttonSwitches;   ///< which buttons react
    std::vector<ButtonSwitch> ledSwitches;      ///< which LEDs shine
    std::vector<ConfigCommand> configCommands;  ///< sent to the board in this order
    std::vector<LedMaskEntry> ledMasks;         ///< sent in this order within a second of the run
};

/// Reads the command line; also sets OutputDiagnostics. Call before other threads start.
/// @return nothing when the command line cannot be used
/// @throws std::bad_alloc when it names more buttons than there is memory for
std::optional<RunSettings> ReadCommandLine(int argc, const char* const* argv);

/// The same for the main function: a command line that cannot be used ends the process through PrintUsage,
/// one that there is not enough memory for with a line on standard error and the same status.
RunSettings ParseCommandLine(int argc, const char* const* argv);

/// Prints the usage text to standard output and ends the process with status 2.
/// @param program the program's name
[[noreturn]] void PrintUsage(const char* program);
