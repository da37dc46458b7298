#include "virtual_player/common/console.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace VirtualPlayer {

namespace {

constexpr std::int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr std::int64_t NANOSECONDS_PER_MILLISECOND = 1'000'000;
constexpr std::uint32_t MILLISECONDS_MAX = 60'000;

}  // namespace

void ReadOptions(int argc, char** argv,
                 const std::function<bool(const std::string& name, const std::string& value)>& take) {
    const auto refuse = [](const char* why, const std::string& name) {
        std::string text = why;
        text.append(name).append("; docs/virtual-player.md lists the options");
        throw std::invalid_argument(text);
    };
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        if (i + 1 == argc) {
            refuse(name == "--help" ? "there is no " : "no value for ", name);
        }
        if (!take(name, argv[i + 1])) {
            refuse("unknown option ", name);
        }
    }
}

void PrintLine(const std::string& line) {
    if (std::fputs((line + "\n").c_str(), stdout) == EOF || std::fflush(stdout) == EOF) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
}

std::int64_t Now() {
    timespec time{};
    if (::clock_gettime(CLOCK_MONOTONIC, &time) != 0) {
        throw std::system_error(errno, std::generic_category(), "clock_gettime");
    }
    return time.tv_sec * NANOSECONDS_PER_SECOND + time.tv_nsec;
}

void PrintRecord(const std::string& event) {
    const std::int64_t now = Now();
    char time[40];
    std::snprintf(time, sizeof time, "%lld.%09lld ", static_cast<long long>(now / NANOSECONDS_PER_SECOND),
                  static_cast<long long>(now % NANOSECONDS_PER_SECOND));
    PrintLine(time + event);
}

void PrintComplaint(unsigned long line, const std::string& what) {
    PrintLine("error: line " + std::to_string(line) + ": " + what);
}

std::vector<std::string> SplitWords(const std::string& line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::uint32_t ParseNumber(const std::string& text) {
    const bool isHex = text.starts_with("0x");
    const char* const first = text.data() + (isHex ? 2 : 0);
    const char* const last = text.data() + text.size();
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(first, last, number, isHex ? 16 : 10);
    if (error != std::errc() || end != last) {
        throw std::invalid_argument("not a number: " + text);
    }
    return number;
}

bool ParseLevel(const std::string& text) {
    if (text != "0" && text != "1") {
        throw std::invalid_argument("not a level: " + text);
    }
    return text == "1";
}

bool ParseSwitch(const std::string& text) {
    if (text != "on" && text != "off") {
        throw std::invalid_argument("neither on nor off: " + text);
    }
    return text == "on";
}

std::int64_t ParseMilliseconds(const std::string& text) {
    const std::uint32_t milliseconds = ParseNumber(text);
    if (milliseconds > MILLISECONDS_MAX) {
        throw std::invalid_argument("more than a minute: " + text);
    }
    return milliseconds * NANOSECONDS_PER_MILLISECOND;
}

std::string FormatWord(std::uint32_t word) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", word);
    return text;
}

std::string FormatWords(std::span<const std::uint32_t> words) {
    std::string list;
    for (const std::uint32_t word : words) {
        list += (list.empty() ? "" : ",") + FormatWord(word);
    }
    return list;
}

bool LineInput::Serve(const std::function<bool(const std::string& line)>& execute) {
    if (!Receive()) {
        return false;
    }
    while (const std::optional<std::string> line = TakeLine()) {
        try {
            if (!execute(*line)) {
                return false;
            }
        } catch (const std::invalid_argument& error) {
            PrintComplaint(m_lineNumber, error.what());
        }
    }
    return true;
}

/// @return false at the end of the input
bool LineInput::Receive() {
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0) {
        throw std::system_error(errno, std::generic_category(), "standard input");
    }
    m_received.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
}

std::optional<std::string> LineInput::TakeLine() {
    const std::size_t end = m_received.find('\n');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = m_received.substr(0, end);
    m_received.erase(0, end + 1);
    ++m_lineNumber;
    return line;
}

}  // namespace VirtualPlayer
