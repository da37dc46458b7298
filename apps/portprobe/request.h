#pragma once

// The command line of portprobe, turned into one record.

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// What the program is to do.
enum class Command {
    HELP,
    VERSION,
    LIST,
    INFO,
    WATCH,
    RECORD,
    GET,
    SET,
    INPUT,
    FUNCTION,
    PARAMETER,
    PULSE,
};

/// Which changes of levels are wanted.
enum class Edges { BOTH, RISING, FALLING };

/// A pin, and the value that it is to have.
struct PinValue {
    unsigned pin = 0;    ///< number, from 0
    unsigned value = 0;  ///< a level, a whole value, steps of a pulse or a parameter, by the command
};

/// A pin, and the function that it is to be switched to.
struct PinFunction {
    unsigned pin = 0;      ///< number, from 0
    std::string function;  ///< its name, as the device tree has it
};

/// What the user wants. What a command does not take is empty, or as it is here.
struct Request {
    Command command = Command::LIST;         ///< what to do
    std::string word;                        ///< the command as it stands on the command line
    std::vector<std::string> names;          ///< of ports
    std::vector<unsigned> pins;              ///< empty: all
    std::vector<PinValue> values;            ///< in the order of the command line
    std::vector<PinFunction> functions;      ///< in the order of the command line
    bool isNumeric = false;                  ///< whether values are printed as bare numbers
    Edges edges = Edges::BOTH;               ///< of levels that a watch shows
    std::optional<unsigned> count;           ///< of changes of a watch, or reports of a record
    std::optional<unsigned> timeoutSeconds;  ///< of a watch or a record; nothing: no end
    unsigned periodMicroseconds = 1000;      ///< between two steps of a pulse
    unsigned steps = 10;                     ///< in a cycle of a pulse

    /// What a message is about that no port is known for.
    const std::string& GetSubject() const { return names.size() == 1 ? names[0] : word; }

    /// Whether the command goes on until a signal ends it.
    bool RunsUntilStopped() const {
        return command == Command::WATCH || command == Command::RECORD || command == Command::PULSE;
    }
};

/// The command line, or what it asks of a port, cannot be: what() says why as "what: why".
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Parses the command line. Once, on the main thread.
/// @throws UsageError
Request ParseCommandLine(int argc, char* const* argv);

/// Prints what the program can do to standard output.
/// @throws ErrnoException when it cannot be printed
void PrintHelp();

/// Prints the program's name and version to standard output.
/// @throws ErrnoException when it cannot be printed
void PrintVersion();
