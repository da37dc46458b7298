#pragma once

// The text side of a device's program: options say what the device is, lines on standard input what happens
// to it, lines on standard output what the device saw. All of it is for one thread.

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace VirtualPlayer {

/// @return the monotonic clock in nanoseconds. @throws std::system_error
std::int64_t Now();

/// Reads the options of a program, each of which has a value.
/// @param take  gets name and value of each in turn; returns false if there is no such option
/// @throws std::invalid_argument with what is wrong: no value, no such option, or what `take` has thrown
void ReadOptions(int argc, char** argv,
                 const std::function<bool(const std::string& name, const std::string& value)>& take);

/// Writes a line, at once. @throws std::system_error
void PrintLine(const std::string& line);

/// Writes an event as one line that begins with its time, seconds on the monotonic clock, so that a test can
/// set it against its own times. @throws std::system_error
void PrintRecord(const std::string& event);

/// Writes "error: line N: WHAT", without a time: why line N of standard input is refused, or has failed
/// later.
/// @throws std::system_error
void PrintComplaint(unsigned long line, const std::string& what);

/// @return the words of a line; blanks separate them
std::vector<std::string> SplitWords(const std::string& line);

/// @return a whole word as a number: decimal, or hexadecimal with 0x
/// @throws std::invalid_argument for anything else
std::uint32_t ParseNumber(const std::string& text);

/// @return a word that is 0 or 1. @throws std::invalid_argument for anything else
bool ParseLevel(const std::string& text);

/// @return "on" or "off" as a bool. @throws std::invalid_argument for anything else
bool ParseSwitch(const std::string& text);

/// @return a time given in milliseconds, at most a minute, in nanoseconds
/// @throws std::invalid_argument for anything else
std::int64_t ParseMilliseconds(const std::string& text);

/// @return a word as all records have it: "0x0000000F"
std::string FormatWord(std::uint32_t word);

/// @return the words of a row, with commas between them
std::string FormatWords(std::span<const std::uint32_t> words);

/// Standard input, line by line.
class LineInput {
public:
    /// Takes in what has come, and has each whole line carried out; to be called when standard input is
    /// readable, else it blocks. A line for which `execute` throws std::invalid_argument is complained about.
    /// @param execute  does what a line says; returns false if the program ends with it
    /// @return false if the program ends, with such a line or with the input. @throws std::system_error
    bool Serve(const std::function<bool(const std::string& line)>& execute);

    /// @return the number of the line that was taken last, from 1; 0 before
    unsigned long LineNumber() const { return m_lineNumber; }

private:
    bool Receive();
    std::optional<std::string> TakeLine();

    std::string m_received;
    unsigned long m_lineNumber = 0;
};

}  // namespace VirtualPlayer
