#pragma once

// The command line of portprobe, turned into one record.

#include <optional>
#include <stdexcept>
#include <string>

enum class Command { LIST, WATCH, GET, SET, PULSE };

/// What the user wants.
struct Request {
    Command command = Command::LIST;
    std::string name;    ///< of the port; empty where the command takes none
    unsigned pin = 0;    ///< for SET and PULSE
    unsigned value = 0;  ///< the same
    unsigned periodMicroseconds = 1000;
    unsigned steps = 10;

    /// Whether the command goes on until a signal ends it.
    bool RunsUntilStopped() const { return command == Command::WATCH || command == Command::PULSE; }
};

/// The command line, or what it asks of a port, cannot be: what() says why as "what: why".
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Parses the command line. Any thread.
/// @return nothing when help is asked for
/// @throws UsageError
std::optional<Request> ParseCommandLine(int argc, const char* const* argv);

/// Prints what the program can do to standard output.
/// @throws ErrnoException when it cannot be printed
void PrintHelp();
